// Searching and comparing texts.
#include "mailtree/base/Search.h"

#include <algorithm>
#include <cctype>
#include <memory>

#include "mailtree/base/SubstringSet.h"
#include "tests/base/tables.h"

namespace mailtree {
namespace {

/// Few letters, so that nearly everything is found nearly everywhere.
std::string randomText(std::mt19937& random, std::size_t size, std::string_view letters) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += letters[random() % letters.size()];
  return text;
}

TEST(Search, looking_at_many_bytes_at_once_finds_what_looking_at_each_does) {
  std::mt19937 random(3);
  const std::string letters("ab\n\r\0\xFF\x7F", 7);
  for (int round = 0; round < 2'000; ++round) {
    std::string rare = randomText(random, random() % 70, letters);
    for (char& c : rare)
      if (round % 2 && random() % 20) c = 'x';
    // With nothing after it, not even a terminator, so that a read beyond its end is found.
    const auto bare = std::make_unique<char[]>(rare.size());
    const std::string_view text(bare.get(), rare.copy(bare.get(), rare.size()));
    const std::string wanted = randomText(random, random() % 20, letters);
    SCOPED_TRACE(testing::PrintToString(rare) + " " + testing::PrintToString(wanted));
    for (std::size_t i = 0; i <= rare.size() + 2; ++i) {
      const std::size_t from = i <= rare.size() + 1 ? i : std::string_view::npos;
      ASSERT_EQ(findSubstring(text, wanted, from), std::string_view(rare).find(wanted, from));
      ASSERT_EQ(findSubstringPortable(text, wanted, from), std::string_view(rare).find(wanted, from));
      const auto found = (findAny<'\n', '\r', '\0'>(text, from));
      ASSERT_EQ(found, (findAnyPortable<'\n', '\r', '\0'>(text, from)));
      ASSERT_EQ(found, std::min(rare.size(), rare.find_first_of("\n\r\0"s, from)));
      ASSERT_EQ((findUnprintable<'b'>(text, from)),
                std::min(rare.size(), rare.find_first_not_of("ax", from)));
      ASSERT_EQ((findUnprintablePortable<'b'>(text, from)), (findUnprintable<'b'>(text, from)));
    }
  }
}

TEST(SubstringSet, finds_what_a_plain_search_finds) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    const std::string text = randomText(random, random() % 40, "ab");
    SubstringSet set;
    std::vector<std::string> wanted;
    for (int i = 0; i < 12; ++i) set.add(wanted.emplace_back(randomText(random, random() % 7, "ab")));
    for (int twice = 0; twice < 2; ++twice) {
      const std::vector<bool> found = set.findIn(text);
      for (std::size_t i = 0; i < wanted.size(); ++i)
        EXPECT_EQ(found[i], !wanted[i].empty() && text.find(wanted[i]) != text.npos)
            << wanted[i] << " in " << text;
    }
  }
}

TEST(Ascii, classes_are_those_of_the_c_locale_for_every_byte) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    EXPECT_EQ(isUpperAscii(c), std::isupper(byte) != 0) << byte;
    EXPECT_EQ(isLowerAscii(c), std::islower(byte) != 0) << byte;
    EXPECT_EQ(isAlnumAscii(c), std::isalnum(byte) != 0) << byte;
    EXPECT_EQ(isSpaceAscii(c), std::isspace(byte) != 0) << byte;
    EXPECT_EQ(isBlankAscii(c), std::isblank(byte) != 0) << byte;
    EXPECT_EQ(isControlAscii(c), std::iscntrl(byte) != 0) << byte;
    EXPECT_EQ(hexValue(c), std::isxdigit(byte) ? std::stoi(std::string(1, c), nullptr, 16) : -1) << byte;
    EXPECT_EQ(static_cast<unsigned char>(toLowerAscii(c)), std::tolower(byte)) << byte;
    EXPECT_EQ(static_cast<unsigned char>(toUpperAscii(c)), std::toupper(byte)) << byte;
  }
}

TEST(Ascii, finds_ignoring_case) {
  const std::size_t none = std::string_view::npos;
  // Letters beyond ASCII have no case here; "@" and "`" are 32 apart, but no letters.
  const std::tuple<const char*, const char*, std::size_t> rows[] = {
      {"", "", 0},      {"abc", "", 0},      {"", "a", none},  {"xABc", "abC", 1},
      {"aab", "AB", 1}, {"ab", "abc", none}, {"É", "é", none}, {"a@", "a`", none}};
  for (const auto& [text, wanted, at] : rows)
    EXPECT_EQ(findNoCase(text, wanted), at) << text << " " << wanted;
}

TEST(Ascii, compares_ignoring_case_byte_for_byte_at_every_place) {
  for (std::size_t size = 1; size <= 20; ++size)
    for (std::size_t at = 0; at < size; ++at)
      for (int left = 0; left < 256; ++left)
        for (const int right : {left, left ^ 0x20, left ^ 0x80, left + 1, left - 1}) {
          std::string a(size, 'Q'), b(size, 'q');
          a[at] = static_cast<char>(left);
          b[at] = static_cast<char>(right);
          ASSERT_EQ(equalsNoCase(a, b), toLowerAscii(a[at]) == toLowerAscii(b[at]))
              << size << " " << at << " " << left << " " << right;
        }
}

}  // namespace
}  // namespace mailtree
