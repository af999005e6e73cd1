#include "mailtree/base/Search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>

namespace mailtree {
namespace {

/// A text with nothing behind it, not even a terminator, so that a read beyond its end is found.
class BareText {
 public:
  explicit BareText(std::string_view text) : m_bytes(new char[text.size()]), m_size(text.size()) {
    std::copy(text.begin(), text.end(), m_bytes.get());
  }
  std::string_view view() const { return {m_bytes.get(), m_size}; }

 private:
  std::unique_ptr<char[]> m_bytes;
  std::size_t m_size;
};

/// Few letters, so that nearly everything is found nearly everywhere.
std::string randomText(std::mt19937& random, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += "ab\n\r\0\xFF"[random() % 6];
  return text;
}

TEST(Search, looking_at_many_bytes_at_once_finds_what_looking_at_each_does) {
  std::mt19937 random(3);
  for (int round = 0; round < 2'000; ++round) {
    std::string rare = randomText(random, random() % 70);
    if (round % 2)
      std::replace_if(
          rare.begin(), rare.end(), [&](char) { return random() % 20 != 0; }, 'x');
    const BareText text(rare);
    const std::string wanted = randomText(random, random() % 20);
    for (std::size_t i = 0; i <= rare.size() + 2; ++i) {
      const std::size_t from = i <= rare.size() + 1 ? i : std::string_view::npos;
      ASSERT_EQ(findSubstring(text.view(), wanted, from), std::string_view(rare).find(wanted, from))
          << testing::PrintToString(rare) << " " << testing::PrintToString(wanted) << " " << from;
      ASSERT_EQ(findSubstringPortable(text.view(), wanted, from), std::string_view(rare).find(wanted, from));
      const auto found = (findAny<'\n', '\r', '\0'>(text.view(), from));
      ASSERT_EQ(found, (findAnyPortable<'\n', '\r', '\0'>(text.view(), from)));
      ASSERT_EQ(found, std::min(rare.size(), rare.find_first_of(std::string_view("\n\r\0", 3), from)))
          << testing::PrintToString(rare) << " " << from;
    }
  }
}

}  // namespace
}  // namespace mailtree
