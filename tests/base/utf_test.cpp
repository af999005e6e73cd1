#include "mailtree/base/Utf.h"

#include "mailtree/base/XString.h"
#include "mailtree/base/internal.h"
#include "tests/base/tables.h"

namespace mailtree {
namespace {

using namespace std::string_view_literals;

/// The slow way: no character of the text decodes to a replacement that was not there.
bool isValidByDecoding(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = at;
    if (nextCodePoint(text, at) == kReplacementCharacter && text.substr(begin, at - begin) != "\xEF\xBF\xBD")
      return false;
  }
  return true;
}

TEST(Utf, code_points_are_read_past_their_longest_plausible_prefix) {
  const std::pair<std::string_view, std::u32string> rows[] = {
      {"A\x7F", U"A\x7F"},
      {"\xC2\x80\xDF\xBF", U"\x80\x7FF"},
      {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", U"\x800\xD7FF\xE000\xFFFF"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", U"\x10000\x10FFFF"},
      // U+FFFD for what is malformed
      {"\x80\xBF", U"\xFFFD\xFFFD"},                      // trail bytes alone
      {"\xC0\x80", U"\xFFFD\xFFFD"},                      // overlong, two bytes
      {"\xE0\x9F\xBF", U"\xFFFD\xFFFD\xFFFD"},            // overlong, three bytes
      {"\xF0\x8F\xBF\xBF", U"\xFFFD\xFFFD\xFFFD\xFFFD"},  // overlong, four bytes
      {"\xED\xA0\x80", U"\xFFFD\xFFFD\xFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", U"\xFFFD\xFFFD\xFFFD\xFFFD"},  // above U+10FFFF
      {"\xF5\xFF", U"\xFFFD\xFFFD"},
      {"\xE2\x82\x41", U"\xFFFD\x41"},  // cut short: one for the whole prefix
      {"\xF0\x9F\x98", U"\xFFFD"},
      {"\xF0\x9F\xE2\x82\xAC", U"\xFFFD\x20AC"}};
  for (const auto& [bytes, codePoints] : rows) {
    std::u32string read;
    for (std::size_t at = 0; at < bytes.size();) read.push_back(nextCodePoint(bytes, at));
    EXPECT_TRUE(read == codePoints) << testing::PrintToString(bytes) << " gave "
                                    << testing::PrintToString(read);
    EXPECT_EQ(isValidUtf8(bytes), codePoints.find(kReplacementCharacter) == codePoints.npos)
        << testing::PrintToString(bytes);
  }
}

TEST(Utf, every_code_point_survives_writing_and_reading) {
  for (char32_t codePoint = 0; codePoint <= 0x110000; ++codePoint) {
    const bool isCharacter = codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
    std::string text;
    appendUtf8(text, codePoint);
    std::size_t at = 0;
    ASSERT_EQ(nextCodePoint(text, at), isCharacter ? codePoint : kReplacementCharacter);
    ASSERT_TRUE(at == text.size() && isValidUtf8(text)) << std::hex << +codePoint;
    const std::u16string utf16 = utf8ToUtf16(text);
    std::string back;
    appendUtf16AsUtf8(back, {reinterpret_cast<const char*>(utf16.data()), utf16.size() * 2},
                      /*bigEndian=*/false);
    ASSERT_EQ(back, text) << std::hex << +codePoint;
  }
}

void expectValidity(std::string_view text, bool expected) {
  ASSERT_EQ(isValidUtf8(text), expected) << testing::PrintToString(text);
  ASSERT_EQ(isValidUtf8Portable(text), expected) << testing::PrintToString(text);
}

TEST(Utf, all_validators_agree_on_every_four_bytes_that_matter_across_block_seams) {
  // One byte from each side of every border of the encoding.
  constexpr std::string_view kBytes =
      "\x00\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF"sv;
  for (const std::size_t at : {30U, 63U}) {  // over a seam; up to the very end
    std::string text(67, 'a');
    for (const char a : kBytes)
      for (const char b : kBytes)
        for (const char c : kBytes)
          for (const char d : kBytes) {
            text.replace(at, 4, {a, b, c, d});
            expectValidity(text, isValidByDecoding(std::string_view(text).substr(at, 4)));
            if (HasFailure()) return;
          }
  }
}

TEST(Utf, all_validators_agree_on_long_texts_with_one_byte_changed) {
  std::mt19937 random(20240229);
  const std::u32string alphabet = U"a \u00E9\u0416\u20AC\u65E5\U0001F600";
  for (int round = 0; round < 20000 && !HasFailure(); ++round) {
    std::string text;
    const std::size_t size = random() % 200;
    while (text.size() < size) appendUtf8(text, alphabet[random() % alphabet.size()]);
    expectValidity(text, true);
    if (text.empty()) continue;
    if (random() % 4 == 0) text.resize(random() % text.size());
    if (!text.empty()) text[random() % text.size()] = static_cast<char>(random());
    expectValidity(text, isValidByDecoding(text));
  }
}

TEST(Utf, a_character_torn_apart_by_ascii_is_not_valid_however_long_the_run) {
  for (const std::string_view torn : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"})
    for (const std::size_t before : {0U, 31U, 62U, 63U, 127U})
      for (const std::size_t between : {1U, 31U, 32U, 64U, 65U, 128U}) {
        const std::string run(between, 'a');
        expectValidity(std::string(before, 'a') + torn[0] + run + std::string(torn.substr(1)) + run, false);
      }
}

TEST(Utf, ascii_is_told_wherever_the_one_other_byte_is) {
  for (std::size_t size = 0; size < 200; ++size) {
    std::string text(size, '\x7F');
    ASSERT_TRUE(isAscii(text)) << size;
    for (std::size_t at = 0; at < size; ++at) {
      text[at] = '\x80';
      ASSERT_FALSE(isAscii(text)) << at << " of " << size;
      text[at] = 'a';
    }
  }
}

TEST(Utf, a_prefix_never_cuts_a_character) {
  const std::tuple<std::string_view, std::size_t, std::size_t> rows[] = {
      {"abc", 2, 2},       {"abc", 9, 3}, {"a€", 4, 4}, {"éé", 2, 2}, {"", 0, 0},
      {"a\x80\x80", 2, 2}, {"a€", 3, 1},  {"😀", 3, 0},  {"éé", 3, 2}};
  for (const auto& [text, limit, length] : rows)
    EXPECT_EQ(utf8PrefixLength(text, limit), length) << testing::PrintToString(text) << " " << limit;
  EXPECT_EQ(utf8PrefixLength("\x80\x80\x80\x80\x80\x80", 4), 4U) << "no character to spare";
}

TEST(Utf, utf16_is_read_in_either_byte_order_and_any_length) {
  std::string big, little, expected;
  for (int i = 0; i < 3000; ++i) {  // more than is converted in one go
    big += "\x20\xAC"sv, little += "\xAC\x20"sv, expected += "\xE2\x82\xAC";
    if (i % 7 == 0) big += "\0a"sv, little += "a\0"sv, expected += "a";
  }
  std::string fromBig, fromLittle;
  appendUtf16AsUtf8(fromBig, big, true);
  appendUtf16AsUtf8(fromLittle, little, false);
  EXPECT_EQ(fromBig, expected);
  EXPECT_EQ(fromLittle, expected);
}

TEST(XString, takes_ansi_text_and_replaces_only_what_is_no_utf8) {
  const Row rows[] = {{"\xC3\xA9", "> \xC3\xA9"},
                      {"caf\xE9 \xC3\xA9", "> caf\uFFFD é"},
                      {"\xE2\x82 \uFFFD", "> \uFFFD\uFFFD \uFFFD"}};
  for (const auto& [ansi, utf8] : rows) {
    XString text("> ");
    ASSERT_TRUE(text.appendAnsiN(ansi.data(), ansi.size()));
    EXPECT_EQ(text.view(), utf8) << testing::PrintToString(ansi);
  }
}

TEST(XString, counts_characters_and_gives_utf16) {
  XString text("a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(text.getNumChars(), 3U);
  EXPECT_EQ(std::u16string(text.getUtf16_xe()), u"a\u00E9\U0001F600");
  text.getUtf8Sb_rw().setString("b");
  EXPECT_EQ(std::u16string(text.getUtf16_xe()), u"b") << "made anew after a change";
  text.setFromUtf8N(nullptr, 5);
  EXPECT_TRUE(text.isEmpty());
}

}  // namespace
}  // namespace mailtree
