#include "mailtree/base/StringBuffer.h"

#include <array>
#include <cstring>
#include <limits>
#include <new>

#include "tests/base/tables.h"

namespace mailtree {
namespace {

using Sb = StringBuffer;

TEST(StringBuffer, changes_its_text) {
  const std::string digits = "0123456789abcdefghij";
  const Change<Sb> rows[] = {
      {[](Sb& s) { s.append(static_cast<const char*>(nullptr)); }, "a", "a"},
      {[](Sb& s) { s.appendN(nullptr, 7); }, "a", "a"},
      {[](Sb& s) { s.append(std::numeric_limits<int>::min()); }, "n", "n-2147483648"},
      {[](Sb& s) { s.append(s.getString() + 10); }, digits, digits + "abcdefghij"},
      {[](Sb& s) { s.prepend(s.getString()); }, digits, digits + digits},
      {[](Sb& s) { s.setString(s.getString() + 2); }, "abcd", "cd"},
      {[](Sb& s) { s.appendHexDataNoWS(s.getString(), s.getSize()); }, "\x01\xFF",
       "\x01\xFF\x30\x31\x46\x46"},
      {[](Sb& s) { s.shorten(9); }, "abc", ""},
      {[](Sb& s) { s.chopAtFirstChar(';'); }, "a;b;c", "a"},
      {[](Sb& s) { s.trim2(); }, "\r\n\t a b \v\f", "a b"},
      {[](Sb& s) { s.stripDirectory(); }, "C:\\x/y\\z.doc", "z.doc"},
      {[](Sb& s) { s.removeCharOccurances('-'); }, "-a--b-", "ab"},
      {[](Sb& s) { s.toUpperCase(); }, "a\xC3\xA9z", "A\xC3\xA9Z"},
      {[](Sb& s) { s.toLowerCase(); }, "@AZ[`az{", "@az[`az{"},
      {[](Sb& s) { s.toCRLF(); }, "a\nb\rc\r\nd\n\re\r\r\nf\r", "a\r\nb\r\nc\r\nd\r\n\r\ne\r\n\r\nf\r\n"},
      {[](Sb& s) { s.toAlphaNumUsAscii(); }, "h\xC3\xB6st-1.example", "hst1example"},
      {[](Sb& s) { s.replaceAllOccurances("b", s.getString()); }, "abc", "aabcc"},
      {[](Sb& s) { s.replaceAllOccurances("b", nullptr); }, "abcb", "ac"},
      {[](Sb& s) { s.replaceFirstOccurance("b", "XY"); }, "abcb", "aXYcb"},
      {[](Sb& s) { s.replaceLastOccurance("b", ""); }, "abcbd", "abcd"},
      {[](Sb& s) { s.replaceFirstOccurance("", "x"); }, "abc", "abc"},
      {[](Sb& s) { s.replaceCharUtf8('\xA9', '?'); }, "\xC3\xA9", "\xC3\xA9"},
      {[](Sb& s) { s.replaceCharUtf8('a', '\xA9'); }, "a", "a"},
      {[](Sb& s) { s.replaceCharUtf8(',', ';'); }, "a,\xC3\xA9,", "a;\xC3\xA9;"}};
  for (const auto& [change, before, after] : rows) {
    StringBuffer text(before);
    change(text);
    EXPECT_EQ(text.view(), after);
    EXPECT_EQ(std::strlen(text.getString()), text.getSize()) << after;
  }
}

TEST(StringBuffer, answers_questions) {
  const StringBuffer text("Content-Type: text/plain");
  EXPECT_TRUE(StringBuffer().equals(static_cast<const char*>(nullptr)));
  EXPECT_FALSE(text.equals("content-type: text/plain"));
  EXPECT_TRUE(text.equalsIgnoreCase("CONTENT-TYPE: TEXT/PLAIN"));
  EXPECT_FALSE(text.equalsIgnoreCase2("content-type", 12)) << "a prefix is not all";
  EXPECT_TRUE(StringBuffer("AB").equalsIgnoreCase2("abcd", 2));
  EXPECT_TRUE(text.beginsWithN("Content-Zip", 8));
  EXPECT_FALSE(text.beginsWithIgnoreCaseN("cOnTent-Zip", 9));
  EXPECT_FALSE(StringBuffer("a").beginsWith("ab"));
  EXPECT_TRUE(text.endsWithIgnoreCase("PLAIN"));
  EXPECT_FALSE(text.endsWith("PLAIN"));
  EXPECT_TRUE(text.containsSubstringNoCase("TYPE: TEXT"));
  EXPECT_FALSE(text.containsSubstring("TYPE"));
  EXPECT_TRUE(text.matches("content*: *PLAIN", false));
  EXPECT_FALSE(text.matches("content*", true));
  EXPECT_FALSE(text.matches("Content*text", true)) << "not the whole text";
  EXPECT_TRUE(text.matches("*Content-Type: text/plain**", true)) << "a star may match nothing";
  EXPECT_TRUE(StringBuffer().matches("*", true));
  EXPECT_TRUE(StringBuffer("aaab").matches("*aab", true)) << "retries after a star";
}

TEST(StringBuffer, reads_a_leading_number_and_stops_at_the_largest) {
  const std::pair<const char*, unsigned> rows[] = {
      {"", 0}, {" \t042px", 42}, {"-1", 0}, {"4294967294", 4294967294U}, {"4294967296", 4294967295U}};
  for (const auto& [text, value] : rows) EXPECT_EQ(StringBuffer(text).uintValue(), value) << text;
}

TEST(StringBuffer, wipes_what_it_held_even_beyond_its_present_size) {
  alignas(StringBuffer) std::array<unsigned char, sizeof(StringBuffer)> storage{};
  auto* const text = new (storage.data()) StringBuffer("secret-123");  // short enough to be held in place
  text->shorten(5);
  text->strongClear();
  const std::string_view bytes(reinterpret_cast<const char*>(storage.data()), storage.size());
  EXPECT_EQ(bytes.find("secret"), std::string_view::npos);
  EXPECT_EQ(bytes.find("123"), std::string_view::npos);
  EXPECT_TRUE(text->isEmpty());
  text->~StringBuffer();
}

TEST(StringBuffer, keeps_its_text_when_there_is_no_memory) {
  StringBuffer text("kept");
  volatile std::size_t impossible = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_FALSE(text.appendN("x", impossible));
  EXPECT_EQ(text.view(), "kept");
}

TEST(StringBuffer, hands_its_text_over_and_forgets_its_allocation) {
  StringBuffer text(std::string(1000, 'x').c_str());
  EXPECT_GE(text.heapUsage(), 1000U);
  text.weakClear();
  EXPECT_GE(text.heapUsage(), 1000U) << "weakClear keeps the allocation";
  text.append("abc");
  EXPECT_EQ(text.extractString(), "abc");
  EXPECT_TRUE(text.isEmpty());
  text.append(std::string(1000, 'x').c_str());
  text.clear();
  EXPECT_EQ(text.heapUsage(), 0U);
}

}  // namespace
}  // namespace mailtree
