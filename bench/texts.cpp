#include "bench/texts.h"

#include <random>

namespace mailtree::bench {

namespace {

constexpr std::size_t kLanguageSize = 1 << 16;

std::string pageOf(std::string_view sentence) {
  const std::string text(sentence.substr(0, sentence.find('\r')));
  return "<tr><td class=\"content\" style=\"padding:8px 24px;font-family:Arial,sans-serif\">\r\n<p>" + text +
         "</p>\r\n</td></tr>\r\n";
}

constexpr std::string_view kRussian = "Съешь ещё этих мягких французских булок, да выпей чаю.\r\n";
constexpr std::string_view kJapanese = "これは日本語の文章です。文字コードを変えてみます。\r\n";
constexpr std::string_view kChinese = "这是一段普通的中文文字，用来测试字符编码的转换。\r\n";
constexpr std::string_view kKorean = "이것은 문자 인코딩을 바꾸는 시험을 위한 문장입니다.\r\n";

}  // namespace

const std::array<Prose, 4> kProse = {{
    {"english", "Plain lines as people write them, all of it ASCII and none of it long.\r\n"},
    {"html",
     "<p style=\"margin:0 0 1em\">A paragraph of a newsletter, with the usual attributes and some "
     "café.</p>\r\n"},
    {"russian", "Обычный текст, в утф-8.\r\n"},
    {"nothing_but_escapes", "あ"},
}};

const std::array<Language, 15> kLanguages = {{
    {"us-ascii", 20127, "US-ASCII", "US-ASCII", "Plain words, nothing else in them.\r\n"},
    {"iso-8859-1", 28591, "ISO-8859-1", "ISO-8859-1",
     "Smørrebrød à la carte, déjà vu, und viele Grüße aus Köln an den Müller.\r\n"},
    {"iso-8859-2", 28592, "ISO-8859-2", "ISO-8859-2", "Příliš žluťoučký kůň úpěl ďábelské ódy.\r\n"},
    {"windows-1252", 1252, "windows-1252", "WINDOWS-1252",
     "Smørrebrød “à la carte” – 20 €, déjà vu, und viele Grüße an alle.\r\n"},
    {"windows-1250", 1250, "windows-1250", "WINDOWS-1250", "Příliš žluťoučký kůň úpěl ďábelské ódy.\r\n"},
    {"windows-1251", 1251, "windows-1251", "WINDOWS-1251", kRussian},
    {"windows-1253", 1253, "windows-1253", "WINDOWS-1253", "Ξεσκεπάζω τήν ψυχοφθόρα βδελυγμία.\r\n"},
    {"koi8-r", 20866, "KOI8-R", "KOI8-R", kRussian},
    {"shift_jis", 932, "windows-932", "CP932", kJapanese},
    {"euc-jp", 51932, "EUC-JP", "EUC-JP", kJapanese},
    {"iso-2022-jp", 50220, "ISO-2022-JP", "ISO-2022-JP", kJapanese},
    {"gb18030", 54936, "gb18030", "GB18030", kChinese},
    {"big5", 950, "Big5", "BIG5", "這是一段普通的中文文字，用來測試字元編碼的轉換。\r\n"},
    {"euc-kr", 51949, "EUC-KR", "EUC-KR", kKorean},
    {"cp949", 949, "windows-949", "UHC", kKorean},
}};

std::string repeated(std::string_view text, std::size_t size) {
  std::string all;
  while (all.size() < size) all += text;
  return all;
}

std::string randomBytes(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

std::array<LanguageText, 2 * kLanguages.size()> languageTexts() {
  std::array<LanguageText, 2 * kLanguages.size()> texts;
  std::size_t i = 0;
  for (const Language& language : kLanguages) {
    const std::string name = language.name;
    texts[i++] = {name, &language, repeated(language.sentence, kLanguageSize)};
    texts[i++] = {name + "-page", &language, repeated(pageOf(language.sentence), kLanguageSize)};
  }
  return texts;
}

}  // namespace mailtree::bench
