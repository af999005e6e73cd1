#include "mailtree/mime/charset/Charset.h"

#include <gtest/gtest.h>

#include <fstream>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "tests/support/places.h"

namespace mailtree {

static std::ostream& operator<<(std::ostream& out, TextOrigin origin) {
  static const char* const kNames[] = {"declared", "byteOrderMark", "validUtf8",
                                       "detected", "unlabelled",    "unexplained"};
  return out << kNames[static_cast<int>(origin)];
}

namespace {

std::string fromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(hexValue(hex[i]) << 4 | hexValue(hex[i + 1]));
  return bytes;
}

/// A text in a charset, both sides as another implementation converts them.
struct Sample {
  std::string label, bytes, utf8;
};

std::vector<Sample> samples() {
  std::vector<Sample> all;
  std::ifstream file(places::testData() + "/charset_samples.tsv");
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string label, bytes, utf8;
    fields >> label >> bytes >> utf8;
    all.push_back({label, fromHex(bytes), fromHex(utf8)});
  }
  return all;
}

std::string converted(int from, int to, std::string_view bytes, bool expectWhole) {
  LogNull log;
  DataBuffer out;
  out.append(std::string_view("before"));
  EXPECT_EQ(EncodingConvert::EncConvert(from, to, bytes.data(), bytes.size(), out, log), expectWhole)
      << from << " to " << to << ": " << bytes;
  return std::string(out.view());
}

TEST(Charset, reads_labels_as_mail_writes_them) {
  const struct {
    std::string_view label;
    int codePage;
  } rows[] = {
      {"utf-8", 65001},
      {"UTF8", 65001},
      {"\"utf-8\"", 65001},
      {" 'Utf-8' ;", 65001},
      {"us-ascii", 20127},
      {"ANSI_X3.4-1968", 20127},
      {"646", 20127},
      {"iso-8859-1", 28591},
      {"latin1", 28591},
      {"ISO_8859-1:1987", 28591},
      {"cp1252", 1252},
      {"Windows-1252", 1252},
      {"gb2312", 936},
      {"x-gbk", 936},
      {"gb18030", 54936},
      {"ks_c_5601-1987", 949},
      {"shift_jis", 932},
      {"x-sjis", 932},
      {"ms_kanji", 932},
      {"windows-31j", 932},
      {"cp932", 932},
      {"iso-2022-jp-ms", 50221},
      {"iso-2022-jp-2", 50220},
      {"big5-hkscs", 951},
      {"iso-8859-8-i", 38598},
      {"x-mac-roman", 10000},
      {"unicode-1-1-utf-7", 65000},
      {"koi8-ru", 21866},
      {"tis-620", 874},
      {"utf-16", 1200},
      {"utf-16be", 1201},
      {"default", 0},
      {"x-user-defined", 0},
      {"", 0},
      {"\" \"", 0},
      {"utf-9", 0},
      {"a label that is much longer than any label that anybody ever registered", 0},
  };
  for (const auto& row : rows) EXPECT_EQ(codePageOfCharset(row.label), row.codePage) << row.label;
}

TEST(Charset, tells_what_mail_can_be_written_in) {
  const struct {
    const char* name;
    bool isWide, isForMail;
  } rows[] = {{"utf-8", false, true},    {"us-ascii", false, true}, {"iso-2022-jp", false, true},
              {"utf-16le", true, false}, {"utf-16be", true, false}, {"utf-32le", true, false},
              {"utf-32be", true, false}, {"utf-7", false, false},   {"unknown", false, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(hasWideUnits(codePageOfCharset(row.name)), row.isWide) << row.name;
    EXPECT_EQ(isMailCodePage(codePageOfCharset(row.name)), row.isForMail) << row.name;
  }
}

TEST(Charset, keeps_its_name_and_compares_by_code_page) {
  _svCharset named, numbered, unknown, unknownToo;
  named.setByName("Latin1");
  numbered.setByCodePage(28591);
  unknown.setByName("X-Ours");
  unknownToo.setByName("x-ours");
  EXPECT_STREQ(named.getName(), "Latin1");
  EXPECT_STREQ(numbered.getName(), "iso-8859-1");
  EXPECT_TRUE(named.equals(numbered));
  EXPECT_EQ(unknown.getCodePage(), 0);
  EXPECT_TRUE(unknown.equals(unknownToo));
  EXPECT_FALSE(unknown.equals(_svCharset()));
  EXPECT_FALSE(unknown.equals(named));
  named.setByName(nullptr);
  numbered.setByCodePage(0);
  EXPECT_TRUE(named.equals(numbered));
  EXPECT_STREQ(numbered.getName(), "");
}

TEST(Charset, every_sample_converts_both_ways) {
  const std::vector<Sample> all = samples();
  ASSERT_GT(all.size(), 40U);
  for (const Sample& sample : all) {
    const int codePage = codePageOfCharset(sample.label);
    EXPECT_EQ(converted(codePage, 65001, sample.bytes, true), sample.utf8) << sample.label;
    std::string back, again;
    EXPECT_TRUE(encodeFromUtf8(codePage, sample.utf8, back)) << sample.label << " " << sample.utf8;
    EXPECT_TRUE(decodeToUtf8(codePage, back, again)) << sample.label;
    EXPECT_EQ(again, sample.utf8) << sample.label;
    EXPECT_EQ(codePageOfCharset(charsetNameOf(codePage)) != 0, true) << sample.label;
  }
}

TEST(Charset, long_texts_convert_like_short_ones) {
  for (const Sample& sample : samples()) {
    if (sample.label == "iso-2022-kr" || sample.label == "utf-7")
      continue;  // cannot simply be strung together
    std::string bytes, utf8;
    while (utf8.size() < 40000) {
      bytes += sample.bytes;
      utf8 += sample.utf8;
    }
    const int codePage = codePageOfCharset(sample.label);
    EXPECT_TRUE(converted(codePage, 65001, bytes, true) == utf8) << sample.label;
    std::string back;
    ASSERT_TRUE(encodeFromUtf8(codePage, utf8, back)) << sample.label;
    EXPECT_TRUE(converted(codePage, 65001, back, true) == utf8) << sample.label;
  }
}

TEST(Charset, latin1_is_read_as_windows_1252_and_written_strictly) {
  EXPECT_EQ(converted(28591, 65001, "\x80\x93\x81\xE9", true), "€\xE2\x80\x9C\xC2\x81é");
  EXPECT_EQ(converted(65001, 28591, "\xC2\x80\xC2\x9Fé", true), "\x80\x9F\xE9");
  EXPECT_EQ(converted(65001, 28591, "1 €", false), "1 ?");
}

TEST(Charset, says_what_could_not_be_converted_and_converts_the_rest) {
  const std::string fffd = "\xEF\xBF\xBD";
  const struct {
    int from, to;
    std::string bytes, result;
  } rows[] = {
      {20127, 65001, "a\xE9z", "a" + fffd + "z"},
      {65001, 20127, "aéz", "a?z"},
      {65001, 1251, "да 日 да", "\xE4\xE0 ? \xE4\xE0"},
      {65001, 1252, "a\xFFz\xC3", "a?z?"},             // malformed
      {65001, 1252, "\xE0\x82\xA9\xC1\x81", "?????"},  // overlong
      {65001, 1201, "a\xFF", std::string("\0a\xFF\xFD", 4)},
      {1251, 28591, "\xE4!", "?!"},
      {1253, 65001, "\xAA\xC1", fffd + "Α"},
      {1200, 65001, std::string("a\0\x3D\xD8z\0!", 7), "a" + fffd + "z" + fffd},
      {932, 65001,
       "\x82\xA0\x81\n\xFF"
       "a",
       "あ" + fffd + "\n" + fffd + "a"},
      {932, 65001, "\x82", fffd},
      {54936, 65001, "\x81\x30\x81", fffd + "0" + fffd},
      {65001, 932, "あé", "\x82\xA0?"},
      {65001, 50220, "あéz", "\x1B$B$\"\x1B(B?z"},
      {50220, 65001, "\x1B$B$\"\x1B(Ba\x82", "あa" + fffd},
      {50220, 65001, "\x1B%5a", fffd + "%5a"},
      {65001, 65001, "a\xC3", "a" + fffd},
  };
  for (const auto& row : rows)
    EXPECT_EQ(converted(row.from, row.to, row.bytes, false), row.result) << row.bytes;
}

TEST(Charset, the_replacement_character_itself_is_a_character) {
  for (const int codePage : {1200, 54936, 65001}) {
    std::string bytes;
    ASSERT_TRUE(encodeFromUtf8(codePage, "a\xEF\xBF\xBDz", bytes)) << codePage;
    EXPECT_EQ(converted(codePage, 65001, bytes, true), "a\xEF\xBF\xBDz") << codePage;
  }
}

TEST(Charset, unknown_code_pages_hand_back_the_input) {
  EXPECT_EQ(converted(4711, 65001, "x\xE9", false), "x\xE9");
  EXPECT_EQ(converted(1252, 0, "x\xE9", false), "x\xE9");
  std::string out = "kept";
  EXPECT_FALSE(decodeToUtf8(4711, "x", out));
  EXPECT_EQ(out, "kept");
}

TEST(Charset, a_null_is_a_character) {
  const std::string text("a\0b", 3);
  for (const int codePage : {65001, 20127, 1252, 932, 54936, 50220}) {
    EXPECT_EQ(converted(codePage, 65001, text, true), text) << codePage;
    EXPECT_EQ(converted(65001, codePage, text, true), text) << codePage;
  }
}

TEST(Charset, ascii_is_itself_in_every_compatible_code_page) {
  std::string ascii;
  for (char c = 1; c < '\x7F'; ++c) ascii += c;
  ascii += '\x7F';
  for (const int codePage :
       {437, 874, 932, 936, 949, 950, 951, 1250, 1258, 10000, 20127, 20866, 28591, 51932, 51949, 54936}) {
    EXPECT_EQ(converted(codePage, 65001, ascii, true), ascii) << codePage;
    EXPECT_EQ(converted(65001, codePage, ascii, true), ascii) << codePage;
  }
}

TEST(Charset, iso_2022_jp_holds_what_mailers_put_in) {
  const struct {
    std::string bytes, utf8;
  } rows[] = {
      {"\x1B$B-!|b\x1B(B", "①髙"},  // rows that Windows added
      {"\x1B(I1\x1B(B", "ｱ"},       // half-width kana, designated
      {"\x0E"
       "1\x0F"
       "a",
       "ｱa"},                                         // and shifted
      {"\x1B(Jy\\~\x1B(B", "y¥‾"},                    // the Japanese ISO 646
      {"\x1B$@F|\x1B&@\x1B$BK\\\r\na", "日本\r\na"},  // no way back to ASCII before the line's end
      {"\x1B$(D0\"\x1B(B", "丄"},                     // supplementary set
      {"\x1B$A::\x1B(B", "汉"},                       // a set of the Chinese edition
  };
  for (const auto& row : rows) EXPECT_EQ(converted(50220, 65001, row.bytes, true), row.utf8) << row.bytes;
}

TEST(Charset, converts_in_place) {
  LogNull log;
  StringBuffer text(
      "gr\xFC\xDF"
      "e");
  EXPECT_TRUE(text.convertEncoding(1252, 65001, log));
  EXPECT_EQ(text.view(), "grüße");
  EXPECT_FALSE(text.convertEncoding(65001, 20127, log));
  EXPECT_EQ(text.view(), "gr??e");
}

TEST(Charset, random_bytes_never_give_malformed_utf8) {
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    std::string bytes(random() % 200, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % 3 ? 0x80 | random() : random());
    for (const int codePage :
         {932, 949, 950, 951, 1200, 1252, 1255, 12000, 50220, 50225, 51932, 52936, 54936, 65000, 65001}) {
      std::string utf8;
      const bool whole = decodeToUtf8(codePage, bytes, utf8);
      ASSERT_TRUE(isValidUtf8(utf8)) << codePage;
      ASSERT_TRUE(whole || utf8.find("\xEF\xBF\xBD") != std::string::npos) << codePage;
    }
  }
}

TEST(Charset, threads_share_tables_and_not_converters) {
  const std::vector<Sample> all = samples();
  std::vector<int> failures(4);
  std::vector<std::thread> threads;
  for (int& failed : failures) {
    threads.emplace_back([&failed, &all] {
      for (int round = 0; round < 20; ++round) {
        for (const Sample& sample : all) {
          std::string utf8;
          failed += !decodeToUtf8(codePageOfCharset(sample.label), sample.bytes, utf8) || utf8 != sample.utf8;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, std::vector<int>(4));
}

TEST(Detection, finds_the_code_page) {
  const struct {
    int codePage;
    std::string utf8;
  } rows[] = {
      {1251, "Съешь ещё этих мягких французских булок, да выпей чаю. Это обычный русский текст без затей."},
      {20866, "Съешь ещё этих мягких французских булок, да выпей чаю. Это обычный русский текст без затей."},
      {932, "これは日本語の文章です。文字コードを推定するために、もう少し長く書いておきます。"},
      {51932, "これは日本語の文章です。文字コードを推定するために、もう少し長く書いておきます。"},
      {54936, "这是一段普通的中文文字，用来测试字符编码的自动识别功能是否正常工作。"},
      {950, "這是一段普通的中文文字，用來測試字元編碼的自動識別功能是否正常運作。"},
      {51949, "이것은 문자 인코딩을 자동으로 감지하는 기능을 시험하기 위한 보통의 한국어 문장입니다."},
      {1252, "Les “élèves” déjà reçus – à côté – fêtent Noël."},
      {1252, "Viele Grüße"},
      {1252, "“Été en Provence” – 20 €"},
      {65001, "déjà vu"},
      {50220, "日本語のメール"},
      {1200, "plain words in two bytes each"},
      {1201, "plain words in two bytes each"},
  };
  for (const auto& row : rows) {
    std::string bytes;
    ASSERT_TRUE(encodeFromUtf8(row.codePage, row.utf8, bytes)) << row.utf8;
    EXPECT_EQ(detectCodePage(bytes), row.codePage) << row.utf8;
  }
  EXPECT_EQ(detectCodePage(""), 0);
}

TEST(ReceivedText, believes_the_label_when_it_explains_every_byte) {
  const std::string japanese = "\x1B$BF|K\\\x1B(B";
  const struct {
    std::string label, bytes;
    TextOrigin origin;
    int codePage;
    bool isConverted;
    std::string text;
  } rows[] = {
      {"", "caf\xE9", TextOrigin::unlabelled, 0, false, ""},
      {"utf-8", "café", TextOrigin::declared, 65001, false, ""},
      {"utf-8",
       "\xEF\xBB\xBF"
       "café",
       TextOrigin::declared, 65001, false, ""},
      {"us-ascii", "plain", TextOrigin::declared, 20127, false, ""},
      {"koi8-r", "plain", TextOrigin::declared, 20866, false, ""},
      {"iso-8859-1", "caf\xE9 \x80", TextOrigin::declared, 28591, true, "café €"},
      {"gb2312", "\xE9\x46", TextOrigin::declared, 936, true, "镕"},
      {"iso-2022-jp", japanese, TextOrigin::declared, 50220, true, "日本"},
      {"iso-2022-jp", "plain", TextOrigin::declared, 50220, true, "plain"},
      {"utf-7", "a+AOk-", TextOrigin::declared, 65000, true, "aé"},
      {"utf-16",
       std::string("\xFF\xFE"
                   "a\0",
                   4),
       TextOrigin::declared, 1200, true, "a"},
      {"utf-16", std::string("\xFE\xFF\0a", 4), TextOrigin::declared, 1201, true, "a"},
      {"utf-16", std::string("\0a\0b", 4), TextOrigin::declared, 1201, true, "ab"},
      {"utf-16", std::string("a\0b\0", 4), TextOrigin::declared, 1200, true, "ab"},
      {"utf-16le", "\x2D\x4E", TextOrigin::declared, 1200, true, "中"},
      {"utf-16", "\x4E\x2D", TextOrigin::declared, 1201, true, "中"},
      // The label is wrong or unknown.
      {"us-ascii", "café", TextOrigin::validUtf8, 65001, false, ""},
      {"x-unknown", "café", TextOrigin::validUtf8, 65001, false, ""},
      {"x-unknown",
       "\xEF\xBB\xBF"
       "café",
       TextOrigin::byteOrderMark, 65001, false, ""},
      {"utf-8",
       std::string("\xFF\xFE"
                   "a\0",
                   4),
       TextOrigin::byteOrderMark, 1200, true, "a"},
      {"x-unknown", japanese, TextOrigin::detected, 50220, true, "日本"},
      {"utf-8",
       "Viele Gr\xFC\xDF"
       "e",
       TextOrigin::detected, 1252, true, "Viele Grüße"},
      {"euc-jp", "\xFF\xFF\xFF", TextOrigin::unexplained, 0, false, ""},
      // Damaged: the label holds, and so does utf-8 without one.
      {"utf-8", "some plain words: é é \xFF \xE9", TextOrigin::detected, 1252, true,
       "some plain words: Ã© Ã© ÿ é"},
      {"utf-8", "é é é \xFF \xE9", TextOrigin::declared, 65001, false, ""},
      {"us-ascii", "café \xC3", TextOrigin::detected, 65001, false, ""},
      {"us-ascii",
       "a \x93"
       "CAF\xC9\x94",
       TextOrigin::detected, 1252, true, "a “CAFÉ”"},
      {"gb2312", "\xD6\xD0\xCE\xC4\xD6", TextOrigin::declared, 936, true, "中文\uFFFD"},
      {"gb2312", "中文中文中文中文中\xE4\xB8", TextOrigin::detected, 65001, false, ""},
      {"big5", "caf\xE9 na\xEFve", TextOrigin::detected, 1252, true, "café naïve"},
      {"iso-2022-jp", "\x1B$BF|K", TextOrigin::declared, 50220, true, "日\uFFFD"},
      {"utf-16le", std::string("a\0b\0c", 5), TextOrigin::declared, 1200, true, "ab\uFFFD"},
      {"iso-2022-jp", "\x1B$BF|\x1B(B words \xFF", TextOrigin::declared, 50220, true, "日 words \uFFFD"},
      {"utf-16", "hello", TextOrigin::validUtf8, 65001, false, ""},
  };
  for (const auto& row : rows) {
    DataBuffer out;
    const DecodedText decoded = receivedTextToUtf8(row.label, row.bytes, out);
    EXPECT_EQ(decoded.origin, row.origin) << row.label << ": " << row.bytes;
    EXPECT_EQ(decoded.codePage, row.codePage) << row.label << ": " << row.bytes;
    EXPECT_EQ(decoded.converted, row.isConverted) << row.label << ": " << row.bytes;
    EXPECT_EQ(out.view(), row.text) << row.label << ": " << row.bytes;
  }
}

}  // namespace
}  // namespace mailtree
