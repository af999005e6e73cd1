#include "mailtree/base/StringBuffer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "mailtree/base/DataBuffer.h"

namespace mailtree {
namespace {

TEST(StringBuffer, changes_its_text) {
  const struct {
    const char* name;
    void (*change)(StringBuffer&);
    const char* before;
    const char* after;
  } rows[] = {
      {"null appends nothing", [](StringBuffer& s) { s.append(static_cast<const char*>(nullptr)); }, "a",
       "a"},
      {"appendN of null", [](StringBuffer& s) { s.appendN(nullptr, 7); }, "a", "a"},
      {"append int", [](StringBuffer& s) { s.append(std::numeric_limits<int>::min()); }, "n", "n-2147483648"},
      {"append itself", [](StringBuffer& s) { s.append(s); }, "0123456789abcdefghij",
       "0123456789abcdefghij0123456789abcdefghij"},
      {"append its own tail", [](StringBuffer& s) { s.append(s.getString() + 10); }, "0123456789abcdefghij",
       "0123456789abcdefghijabcdefghij"},
      {"prepend itself", [](StringBuffer& s) { s.prepend(s.getString()); }, "0123456789abcdef",
       "0123456789abcdef0123456789abcdef"},
      {"set to its own tail", [](StringBuffer& s) { s.setString(s.getString() + 2); }, "abcd", "cd"},
      {"hex of itself", [](StringBuffer& s) { s.appendHexDataNoWS(s.getString(), s.getSize()); }, "\x01\xFF",
       "\x01\xFF"
       "01FF"},
      {"shorten beyond the start", [](StringBuffer& s) { s.shorten(9); }, "abc", ""},
      {"shorten", [](StringBuffer& s) { s.shorten(2); }, "abc", "a"},
      {"chop", [](StringBuffer& s) { s.chopAtFirstChar(';'); }, "a;b;c", "a"},
      {"chop without the character", [](StringBuffer& s) { s.chopAtFirstChar(';'); }, "abc", "abc"},
      {"trim", [](StringBuffer& s) { s.trim2(); }, "\r\n\t a b \v\f", "a b"},
      {"trim blanks only", [](StringBuffer& s) { s.trim2(); }, " \t ", ""},
      {"trim keeps a no-break space", [](StringBuffer& s) { s.trim2(); }, "\xC2\xA0x", "\xC2\xA0x"},
      {"directory, slash", [](StringBuffer& s) { s.stripDirectory(); }, "/tmp/a\\b/c.txt", "c.txt"},
      {"directory, backslash", [](StringBuffer& s) { s.stripDirectory(); }, "C:\\x/y\\z.doc", "z.doc"},
      {"directory only", [](StringBuffer& s) { s.stripDirectory(); }, "dir/", ""},
      {"remove a character", [](StringBuffer& s) { s.removeCharOccurances('-'); }, "-a--b-", "ab"},
      {"case leaves utf-8 alone", [](StringBuffer& s) { s.toUpperCase(); }, "a\xC3\xA9z", "A\xC3\xA9Z"},
      {"lower case", [](StringBuffer& s) { s.toLowerCase(); }, "@AZ[`az{", "@az[`az{"},
      {"CRLF from all kinds of line end", [](StringBuffer& s) { s.toCRLF(); }, "a\nb\rc\r\nd\n\re\r\r\nf\r",
       "a\r\nb\r\nc\r\nd\r\n\r\ne\r\n\r\nf\r\n"},
      {"CRLF stays", [](StringBuffer& s) { s.toCRLF(); }, "a\r\nb", "a\r\nb"},
      {"letters and digits", [](StringBuffer& s) { s.toAlphaNumUsAscii(); }, "h\xC3\xB6st-1.example",
       "hst1example"},
      {"replace all, longer", [](StringBuffer& s) { s.replaceAllOccurances("aa", "bbb"); }, "aaaaa",
       "bbbbbba"},
      {"replace all, own text", [](StringBuffer& s) { s.replaceAllOccurances("b", s.getString()); }, "abc",
       "aabcc"},
      {"replace all, empty", [](StringBuffer& s) { s.replaceAllOccurances("", "x"); }, "abc", "abc"},
      {"replace all by null", [](StringBuffer& s) { s.replaceAllOccurances("b", nullptr); }, "abcb", "ac"},
      {"replace first", [](StringBuffer& s) { s.replaceFirstOccurance("b", "XY"); }, "abcb", "aXYcb"},
      {"replace last", [](StringBuffer& s) { s.replaceLastOccurance("b", ""); }, "abcbd", "abcd"},
      {"replace first, empty", [](StringBuffer& s) { s.replaceFirstOccurance("", "x"); }, "abc", "abc"},
      {"replace an 8-bit character, ANSI", [](StringBuffer& s) { s.replaceCharAnsi('\xE9', 'e'); }, "caf\xE9",
       "cafe"},
      {"replace an 8-bit byte, utf-8", [](StringBuffer& s) { s.replaceCharUtf8('\xA9', '?'); }, "\xC3\xA9",
       "\xC3\xA9"},
      {"replace by an 8-bit byte, utf-8", [](StringBuffer& s) { s.replaceCharUtf8('a', '\xA9'); }, "a", "a"},
      {"replace a character, utf-8", [](StringBuffer& s) { s.replaceCharUtf8(',', ';'); }, "a,\xC3\xA9,",
       "a;\xC3\xA9;"},
  };
  for (const auto& row : rows) {
    StringBuffer text(row.before);
    row.change(text);
    EXPECT_EQ(text.view(), row.after) << row.name;
    EXPECT_EQ(std::strlen(text.getString()), text.getSize()) << row.name;
  }
}

TEST(StringBuffer, answers_questions) {
  const StringBuffer text("Content-Type: text/plain");
  const struct {
    const char* name;
    bool answer;
    bool expected;
  } rows[] = {
      {"equals null", StringBuffer().equals(static_cast<const char*>(nullptr)), true},
      {"equals minds case", text.equals("content-type: text/plain"), false},
      {"equalsIgnoreCase", text.equalsIgnoreCase("CONTENT-TYPE: TEXT/PLAIN"), true},
      {"equalsIgnoreCase2, a prefix is not all", text.equalsIgnoreCase2("content-type", 12), false},
      {"equalsIgnoreCase2, n bytes of more", StringBuffer("AB").equalsIgnoreCase2("abcd", 2), true},
      {"beginsWithN reads n bytes", text.beginsWithN("Content-XXX", 8), true},
      {"beginsWithIgnoreCaseN", text.beginsWithIgnoreCaseN("cOnTent-XXX", 9), false},
      {"beginsWith longer than the text", StringBuffer("a").beginsWith("ab"), false},
      {"endsWithIgnoreCase", text.endsWithIgnoreCase("PLAIN"), true},
      {"endsWith", text.endsWith("PLAIN"), false},
      {"containsSubstringNoCase", text.containsSubstringNoCase("TYPE: TEXT"), true},
      {"containsSubstring", text.containsSubstring("TYPE"), false},
      {"matches", text.matches("content*: *PLAIN", false), true},
      {"matches minds case", text.matches("content*", true), false},
      {"matches needs the whole text", text.matches("Content*text", true), false},
      {"a star may match nothing", text.matches("*Content-Type: text/plain**", true), true},
      {"only stars match an empty text", StringBuffer().matches("*", true), true},
      {"retries after a star", StringBuffer("aaab").matches("*aab", true), true},
  };
  for (const auto& row : rows) EXPECT_EQ(row.answer, row.expected) << row.name;
}

TEST(StringBuffer, reads_a_leading_number_and_stops_at_the_largest) {
  const struct {
    const char* text;
    unsigned value;
  } rows[] = {{"", 0},
              {"x1", 0},
              {" \t42px", 42},
              {"-1", 0},
              {"007", 7},
              {"4294967295", 4294967295U},
              {"4294967296", 4294967295U},
              {"99999999999999999999999999", 4294967295U}};
  for (const auto& row : rows) EXPECT_EQ(StringBuffer(row.text).uintValue(), row.value) << row.text;
}

TEST(StringBuffer, wipes_what_it_held_even_beyond_its_present_size) {
  const std::string_view secret = "secret-123";
  alignas(StringBuffer) std::array<unsigned char, sizeof(StringBuffer)> storage{};
  auto* const text = new (storage.data()) StringBuffer(secret);  // short enough to be held in place
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
