#include "mailtree/base/Ascii.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

namespace mailtree {
namespace {

TEST(Ascii, classes_are_those_of_the_c_locale_for_every_byte) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    EXPECT_EQ(isUpperAscii(c), std::isupper(byte) != 0) << byte;
    EXPECT_EQ(isLowerAscii(c), std::islower(byte) != 0) << byte;
    EXPECT_EQ(isAlnumAscii(c), std::isalnum(byte) != 0) << byte;
    EXPECT_EQ(isSpaceAscii(c), std::isspace(byte) != 0) << byte;
    EXPECT_EQ(isBlankAscii(c), std::isblank(byte) != 0) << byte;
    EXPECT_EQ(isControlAscii(c), std::iscntrl(byte) != 0) << byte;
    EXPECT_EQ(hexValue(c) >= 0, std::isxdigit(byte) != 0) << byte;
    EXPECT_EQ(static_cast<unsigned char>(toLowerAscii(c)), std::tolower(byte)) << byte;
    EXPECT_EQ(static_cast<unsigned char>(toUpperAscii(c)), std::toupper(byte)) << byte;
    if (hexValue(c) >= 0) {
      EXPECT_EQ(hexValue(c), std::stoi(std::string(1, c), nullptr, 16)) << byte;
    }
  }
}

TEST(Ascii, finds_ignoring_case) {
  const struct {
    const char* text;
    const char* wanted;
    std::size_t at;
  } rows[] = {
      {"", "", 0},
      {"abc", "", 0},
      {"", "a", std::string_view::npos},
      {"xABc", "abC", 1},
      {"aab", "AB", 1},
      {"ab", "abc", std::string_view::npos},
      {"\xC3\x89", "\xC3\xA9", std::string_view::npos},  // letters beyond ASCII have no case here
      {"a@", "a`", std::string_view::npos},              // 32 apart, but no letters
  };
  for (const auto& row : rows)
    EXPECT_EQ(findNoCase(row.text, row.wanted), row.at) << row.text << " " << row.wanted;
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
