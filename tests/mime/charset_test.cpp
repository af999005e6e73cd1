#include "mailtree/mime/charset/Charset.h"

#include <fstream>
#include <memory>
#include <thread>

#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/CharsetInternal.h"
#include "mailtree/mime/charset/ComposedText.h"
#include "mailtree/mime/charset/UnicodeInfo.h"
#include "tests/mime/tables.h"
#include "tests/support/places.h"

namespace mailtree {
namespace {

std::string fromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(hexValue(hex[i]) << 4 | hexValue(hex[i + 1]));
  return bytes;
}

/// Texts in many charsets, both sides as another implementation converts them: label, bytes, utf-8.
std::vector<std::tuple<std::string, std::string, std::string>> samples() {
  std::vector<std::tuple<std::string, std::string, std::string>> all;
  std::ifstream file(places::testData() + "/charset_samples.tsv");
  for (std::string label, bytes, utf8; file >> label >> bytes >> utf8;)
    all.emplace_back(label, fromHex(bytes), fromHex(utf8));
  return all;
}

std::string converted(int from, int to, std::string_view bytes, bool expectWhole) {
  DataBuffer out;
  out.append(std::string_view("before"));
  EXPECT_EQ(EncodingConvert::EncConvert(from, to, bytes.data(), bytes.size(), out, quiet), expectWhole)
      << from << " to " << to << ": " << bytes;
  return std::string(out.view());
}

TEST(Charset, reads_labels_as_mail_writes_them) {
  const std::string rows =
      "utf-8=65001|UTF8=65001|\"utf-8\"=65001| 'Utf-8' ;=65001|us-ascii=20127|ANSI_X3.4-1968=20127|646=20127|"
      "iso-8859-1=28591|latin1=28591|ISO_8859-1:1987=28591|cp1252=1252|Windows-1252=1252|gb2312=936|"
      "x-gbk=936|gb18030=54936|ks_c_5601-1987=949|shift_jis=932|x-sjis=932|ms_kanji=932|windows-31j=932|"
      "cp932=932|iso-2022-jp-ms=50221|iso-2022-jp-2=50220|big5-hkscs=951|iso-8859-8-i=38598|"
      "x-mac-roman=10000|unicode-1-1-utf-7=65000|koi8-ru=21866|tis-620=874|utf-16=1200|utf-16be=1201|"
      "default=0|x-user-defined=0|=0|\" \"=0|utf-9=0|a label longer than any that anybody ever registered=0";
  for (const std::string& row : split(rows, "|")) {
    const auto labelAndCodePage = split(row, "=");
    EXPECT_EQ(std::to_string(codePageOfCharset(labelAndCodePage[0])), labelAndCodePage[1]) << row;
  }
}

TEST(Charset, tells_what_mail_can_be_written_in) {
  std::string found;
  for (const auto& name :
       split("utf-8 us-ascii iso-2022-jp utf-16le utf-16be utf-32le utf-32be utf-7 unknown", " ")) {
    const int codePage = codePageOfCharset(name);
    found += name + (hasWideUnits(codePage) ? " wide" : "") + (isMailCodePage(codePage) ? "+ " : " ");
  }
  EXPECT_EQ(
      found,
      "utf-8+ us-ascii+ iso-2022-jp+ utf-16le wide utf-16be wide utf-32le wide utf-32be wide utf-7 unknown ");
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

TEST(Charset, every_sample_converts_both_ways_short_or_long) {
  const auto all = samples();
  ASSERT_GT(all.size(), 40U);
  for (const auto& [label, bytes, utf8] : all) {
    const int codePage = codePageOfCharset(label);
    EXPECT_EQ(converted(codePage, 65001, bytes, true), utf8) << label;
    std::string back, again;
    EXPECT_TRUE(encodeFromUtf8(codePage, utf8, back)) << label << " " << utf8;
    EXPECT_TRUE(decodeToUtf8(codePage, back, again)) << label;
    EXPECT_EQ(again, utf8) << label;
    EXPECT_NE(codePageOfCharset(charsetNameOf(codePage)), 0) << label;

    if (label == "iso-2022-kr" || label == "utf-7") continue;  // cannot simply be strung together
    const std::size_t times = 40000 / utf8.size() + 1;
    const std::string longText = repeat(utf8, times);
    EXPECT_TRUE(converted(codePage, 65001, repeat(bytes, times), true) == longText) << label;
    std::string longBack;
    ASSERT_TRUE(encodeFromUtf8(codePage, longText, longBack)) << label;
    EXPECT_TRUE(converted(codePage, 65001, longBack, true) == longText) << label;
  }
}

TEST(Charset, latin1_is_read_as_windows_1252_and_written_strictly) {
  EXPECT_EQ(converted(28591, 65001, "\x80\x93\x81\xE9", true), "€\u201C\xC2\x81é");
  EXPECT_EQ(converted(65001, 28591, "\xC2\x80\xC2\x9Fé", true), "\x80\x9F\xE9");
  EXPECT_EQ(converted(65001, 28591, "1 €", false), "1 ?");
}

TEST(Charset, says_what_could_not_be_converted_and_converts_the_rest) {
  const std::tuple<int, int, std::string, std::string> rows[] = {
      {20127, 65001, "a\xE9z", "a\uFFFDz"},        {65001, 20127, "aéz", "a?z"},
      {65001, 1252, "a\xFFz\xC3", "a?z?"},         {1251, 28591, "\xE4!", "?!"},
      {65001, 1201, "a\xFF", "\0a\xFF\xFD"s},      {932, 65001, "\x82", "\uFFFD"},
      {1253, 65001, "\xAA\xC1", "\uFFFDΑ"},        {65001, 932, "あé", "\x82\xA0?"},
      {65001, 50220, "あéz", "\x1B$B$\"\x1B(B?z"}, {65001, 65001, "a\xC3", "a\uFFFD"},
      {50220, 65001, "\x1B%5a", "\uFFFD%5a"},      {4711, 65001, "x\xE9", "x\xE9"}};
  const std::tuple<int, int, std::string, std::string> more[] = {
      {65001, 1251, "да 日 да", "\xE4\xE0 ? \xE4\xE0"},
      {1200, 65001, "a\0\x3D\xD8z\0!"s, "a\uFFFDz\uFFFD"},
      {932, 65001, "\x82\xA0\x81\n\xFF\x61", "あ\uFFFD\n\uFFFDa"},
      {54936, 65001, "\x81\x30\x81", "\uFFFD0\uFFFD"},
      {50220, 65001, "\x1B$B$\"\x1B(Ba\x82", "あa\uFFFD"}};
  for (const auto& [from, to, in, out] : both(rows, more))
    EXPECT_EQ(converted(from, to, in, false), out) << in;
  std::string out = "kept";
  EXPECT_FALSE(decodeToUtf8(4711, "x", out));
  EXPECT_EQ(out, "kept");
}

TEST(Charset, the_replacement_character_itself_is_a_character) {
  for (const int codePage : {1200, 54936, 65001}) {
    std::string bytes;
    ASSERT_TRUE(encodeFromUtf8(codePage, "a\uFFFDz", bytes)) << codePage;
    EXPECT_EQ(converted(codePage, 65001, bytes, true), "a\uFFFDz") << codePage;
  }
}

TEST(Charset, ascii_with_a_null_is_itself_in_every_compatible_code_page) {
  std::string ascii;
  for (int c = 0; c < 0x80; ++c) ascii += static_cast<char>(c);
  int count = 0;
  for (int codePage = 1; codePage <= 65001; ++codePage) {
    if (!keepsAscii(codePage)) continue;
    ++count;
    EXPECT_EQ(converted(codePage, 65001, ascii, true), ascii) << codePage;
    EXPECT_EQ(converted(65001, codePage, ascii, true), ascii) << codePage;
  }
  EXPECT_GT(count, 50);
  EXPECT_EQ(converted(50220, 65001, "a\0b"s, true), "a\0b"s);
  EXPECT_EQ(converted(65001, 50220, "a\0b"s, true), "a\0b"s);
}

TEST(Charset, iso_2022_jp_holds_what_mailers_put_in) {
  const Row rows[] = {
      {"\x1B$B-!|b\x1B(B", "①髙"},                    // rows that Windows added
      {"\x1B(I1\x1B(B", "ｱ"},                         // half-width kana, designated
      {"\x0E\x31\x0F\x61", "ｱa"},                     // and shifted
      {"\x1B(Jy\\~\x1B(B", "y¥‾"},                    // the Japanese ISO 646
      {"\x1B$@F|\x1B&@\x1B$BK\\\r\na", "日本\r\na"},  // no way back to ASCII before the line's end
      {"\x1B$(D0\"\x1B(B", "丄"},                     // supplementary set
      {"\x1B$A::\x1B(B", "汉"}};                      // a set of the Chinese edition
  expectEach([](const auto& bytes) { return converted(50220, 65001, bytes, true); }, rows);
}

TEST(Charset, converts_in_place) {
  StringBuffer text("gr\xFC\xDF\x65");
  EXPECT_TRUE(text.convertEncoding(1252, 65001, quiet));
  EXPECT_EQ(text.view(), "grüße");
  EXPECT_FALSE(text.convertEncoding(65001, 20127, quiet));
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
      ASSERT_TRUE(whole || utf8.find("\uFFFD") != std::string::npos) << codePage;
    }
  }
}

TEST(Charset, east_asian_tables_encode_as_icu_does) {
  std::string every;
  for (char32_t c = 1; c < 0x20000; c += c == 0xD7FF ? 0x801 : 1) appendUtf8(every, c);
  const std::string texts[] = {every, "日本" + every.substr(every.size() - 900) + "語 é",
                               repeat("漢字😀かな\u0304 ", 2000), "日\xE6\x97 本\xFF"};
  for (const int codePage : {932, 936, 949, 950, 951, 20932, 20936, 20949, 51932, 51936, 51949, 54936})
    for (const std::string& text : texts) {
      std::string byTable, byIcu;
      ByteSink sink(byIcu);
      const bool complete = encodeWithIcu(icuConverterOf(codePage), text, sink);
      EXPECT_EQ(encodeFromUtf8(codePage, text, byTable), complete) << codePage;
      EXPECT_TRUE(byTable == byIcu) << codePage;
    }
}

TEST(Charset, threads_share_tables_and_not_converters) {
  const auto all = samples();
  std::vector<int> failures(4);
  std::vector<std::thread> threads;
  for (int& failed : failures)
    threads.emplace_back([&failed, &all] {
      for (int round = 0; round < 20; ++round)
        for (const auto& [label, bytes, wanted] : all) {
          std::string utf8, back;
          failed += !decodeToUtf8(codePageOfCharset(label), bytes, utf8) || utf8 != wanted;
          failed += !encodeFromUtf8(codePageOfCharset(label), utf8, back);
        }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, std::vector<int>(4));
}

TEST(ComposedText, composes_all_but_runs_of_marks_that_no_writing_has) {
  const auto marks = [](int count) {
    std::string text = "e";
    for (int i = 0; i < count; ++i) text += "\u0301\u0316";  // belong in the other order
    return text;
  };
  EXPECT_EQ(composedText("e\u0316\u0301 \u1100\u1161"), "\u00E9\u0316 \uAC00");
  EXPECT_TRUE(composedText(marks(15)).starts_with("\u00E9\u0316\u0316"));
  EXPECT_EQ(composedText(marks(16)), marks(16));
}

TEST(Detection, finds_the_code_page) {
  const std::string russian =
      "Съешь ещё этих мягких французских булок, да выпей чаю. Это обычный русский текст без затей.";
  const std::string japanese =
      "これは日本語の文章です。文字コードを推定するために、もう少し長く書いておきます。";
  const std::pair<int, std::string> rows[] = {
      {1252, "“Été en Provence” – 20 €"},      {51932, japanese},         {1251, russian},
      {1200, "plain words in two bytes each"}, {65001, "déjà vu"},        {20866, russian},
      {1201, "plain words in two bytes each"}, {50220, "日本語のメール"}, {932, japanese}};
  const std::pair<int, std::string> more[] = {
      {54936, "这是一段普通的中文文字，用来测试字符编码的自动识别功能是否正常工作。"},
      {1252, "Les “élèves” déjà reçus – à côté – fêtent Noël."}};
  for (const auto& [codePage, utf8] : both(rows, more)) {
    std::string bytes;
    ASSERT_TRUE(encodeFromUtf8(codePage, utf8, bytes)) << utf8;
    EXPECT_EQ(detectCodePage(bytes), codePage) << utf8;
  }
  EXPECT_EQ(detectCodePage(""), 0);
}

TEST(ReceivedText, believes_the_label_when_it_explains_every_byte) {
  const std::string japanese = "\x1B$BF|K\\\x1B(B";
  // What comes of it: where the code page is from, the code page, and the text when it was converted.
  const std::tuple<const char*, std::string, const char*> rows[] = {
      {"iso-2022-jp", japanese, "declared 50220 日本"},     {"utf-8", "café", "declared 65001"},
      {"utf-16", "\xFF\xFE\x61\0"s, "declared 1200 a"},     {"koi8-r", "plain", "declared 20866"},
      {"utf-16", "\xFE\xFF\0a"s, "declared 1201 a"},        {"gb2312", "\xE9\x46", "declared 936 镕"},
      {"utf-16le", "\x2D\x4E", "declared 1200 中"},         {"utf-7", "a+AOk-", "declared 65000 aé"},
      {"x-unknown", "\uFEFFcafé", "byteOrderMark 65001"},   {"utf-16", "\0a\0b"s, "declared 1201 ab"},
      {"utf-8", "\xFF\xFE\x61\0"s, "byteOrderMark 1200 a"}, {"utf-16", "a\0b\0"s, "declared 1200 ab"},
      {"x-unknown", japanese, "detected 50220 日本"},       {"utf-16", "\x4E\x2D", "declared 1201 中"},
      {"euc-jp", "\xFF\xFF\xFF", "unexplained 0"},          {"us-ascii", "café", "validUtf8 65001"},
      {"utf-8", "é é é \xFF \xE9", "declared 65001"},       {"us-ascii", "café \xC3", "detected 65001"},
      {"utf-16le", "a\0b\0c"s, "declared 1200 ab\uFFFD"},   {"utf-16", "hello", "validUtf8 65001"}};
  // Mostly damaged: the label holds, and so does utf-8 without one.
  const std::tuple<const char*, std::string, const char*> more[] = {
      {"", "caf\xE9", "unlabelled 0"},
      {"iso-8859-1", "caf\xE9 \x80", "declared 28591 café €"},
      {"utf-8", "some plain words: é é \xFF \xE9", "detected 1252 some plain words: Ã© Ã© ÿ é"},
      {"us-ascii", "a \x93\x43\x41\x46\xC9\x94", "detected 1252 a “CAFÉ”"},
      {"gb2312", "\xD6\xD0\xCE\xC4\xD6", "declared 936 中文\uFFFD"},
      {"gb2312", "中文中文中文中文中\xE4\xB8", "detected 65001"},
      {"big5", "caf\xE9 na\xEFve", "detected 1252 café naïve"},
      {"iso-2022-jp", "\x1B$BF|K", "declared 50220 日\uFFFD"},
      {"iso-2022-jp", "\x1B$BF|\x1B(B words \xFF", "declared 50220 日 words \uFFFD"}};
  const char* const origins[] = {"declared ", "byteOrderMark ", "validUtf8 ",
                                 "detected ", "unlabelled ",    "unexplained "};
  for (const auto& [label, bytes, result] : both(rows, more)) {
    DataBuffer out;
    const DecodedText decoded = receivedTextToUtf8(label, bytes, out);
    const std::string text = (decoded.converted ? " " : "") + std::string(out.view());
    EXPECT_EQ(origins[static_cast<int>(decoded.origin)] + std::to_string(decoded.codePage) + text, result)
        << label << ": " << bytes;
  }
}

// The portable and the vector path for single bytes

#if MAILTREE_HAS_AVX2_PATH

using Decode = char* (*)(const SingleByteCodec&, std::string_view, char*, bool&) noexcept;

/// The text and whether it is whole. In and out of buffers of exactly the promised size, so that a
/// sanitizer sees any byte too many.
std::pair<std::string, bool> decoded(Decode how, const SingleByteCodec& codec, std::string_view bytes) {
  const auto exact = std::make_unique<char[]>(bytes.size());
  bytes.copy(exact.get(), bytes.size());
  std::size_t room = kSingleByteMargin;
  for (const char c : bytes) room += packedLength(codec.utf8[static_cast<unsigned char>(c)]);
  const auto out = std::make_unique<char[]>(room);
  bool isWhole = true;
  char* const end = how(codec, {exact.get(), bytes.size()}, out.get(), isWhole);
  return {std::string(out.get(), end), isWhole};
}

TEST(CharsetSingleByte, vector_and_portable_paths_agree_in_every_code_page) {
  if (!hasAvx2()) GTEST_SKIP() << "no such processor";
  std::mt19937 random(1);
  for (const SingleByteCodec& codec : kSingleByteCodecs) {
    for (int round = 0; round < 300; ++round) {
      // From ASCII with a few others to nothing but others.
      const unsigned share = random() % 17;
      std::string bytes(random() % 200, 'a');
      for (char& c : bytes)
        if (random() % 16 < share) c = static_cast<char>(random());
      ASSERT_EQ(decoded(decodeSingleByteAvx2, codec, bytes), decoded(decodeSingleBytePortable, codec, bytes))
          << codec.codePage << ": " << testing::PrintToString(bytes);
      ASSERT_EQ(count8bitAvx2(bytes), count8bitPortable(bytes)) << testing::PrintToString(bytes);
    }
  }
}

#endif

// Suggestions

std::string suggestedFor(std::string_view text, const char* preferred) {
  UnicodeInfo info;
  info.ExamineUnicode("\xE6\x97\xA5");  // an earlier scan leaves no trace
  info.ExamineUnicode(text);
  _svCharset suggestion;
  suggestion.setByName("old");
  info.suggestCharset(suggestion, preferred, text, quiet);
  EXPECT_STREQ(suggestion.getName(), std::string(charsetNameOf(suggestion.getCodePage())).c_str()) << text;
  return suggestion.getName();
}

TEST(SuggestCharset, FollowsPreferenceScriptAndTodaysReader) {
  // The charset suggested, and texts with the preferred one for which it is.
  const Row rows[] = {
      // The preference carries the text.
      {"koi8-r", "привет=KOI8-R"},
      {"shift_jis", "日本語=shift_jis|日本語=sjis"},
      {"gb18030", "привет 😀=gb18030|䶮=gb2312"},
      {"us-ascii", "plain=us-ascii"},
      // None, where iso-8859-1 or iso-8859-2 carries it.
      {"", "=|schön=|schön=us-ascii|schön=no such charset|schön=utf-16be|žluťoučký=koi8-r|2 × 3 ÷ 1 °C="},
      // A sister of the preference.
      {"windows-1251", "привет — «мир» №=iso-8859-5|привет — мир=koi8-r|Ђорђе=koi8-r"},
      {"windows-1252", "It’s €5=iso-8859-1"},
      {"windows-1250", "żółć – „tak”=iso-8859-2"},
      {"windows-1253", "Ωμέγα „α”=iso-8859-7"},
      {"windows-1255", "שלום – ₪=iso-8859-8"},
      {"iso-2022-jp", "ﾃｽﾄ 日本=iso-2022-jp"},
      {"ks_c_5601-1987", "똠방각하=euc-kr"},
      {"gb2312", "朱镕基=gb2312"},
      // utf-8 for all else.
      {"utf-8", "schön=utf-8|привет=|привет=iso-8859-7|привет=utf-16|привет=utf-7|日本語=windows-874"},
      {"utf-8", "привет, schön=koi8-r|привет Ωμέγα —=iso-8859-5|It’s=koi8-u|schön 😀=iso-8859-1"},
      {"utf-8", "a ❤️ b → c=iso-8859-1|привет — ☎=koi8-r|नमस्ते=windows-1252"},
      {"utf-8", "caf\xE9=iso-8859-1|caf\xE9=|\xED\xA0\x80\xC3=utf-8"}};
  for (const auto& [charset, cases] : rows)
    for (const std::string& textAndPreference : split(cases, "|")) {
      const auto parts = split(textAndPreference, "=");
      EXPECT_EQ(suggestedFor(parts[0], parts[1].c_str()), charset) << textAndPreference;
    }
  EXPECT_EQ(suggestedFor("schön", nullptr), "");
}

}  // namespace
}  // namespace mailtree
