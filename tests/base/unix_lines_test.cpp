#include "mailtree/base/UnixLines.h"

#include "tests/base/tables.h"

namespace mailtree {
namespace {

TEST(UnixLines, every_kind_of_break_anywhere_in_a_block_becomes_LF) {
  std::mt19937 random(5);
  for (int round = 0; round < 20'000; ++round) {
    std::string text, expected;
    while (text.size() < random() % 70) {
      static constexpr const char* kPieces[] = {"\r\n", "\r", "\n", "\r\r\n", "a", "bcdefgh", "\xC3\xA4"};
      text += kPieces[random() % std::size(kPieces)];
    }
    for (std::size_t i = 0; i < text.size(); ++i)
      if (text[i] != '\n' || i == 0 || text[i - 1] != '\r') expected += text[i] == '\r' ? '\n' : text[i];
    ASSERT_EQ(withUnixLines(text), expected) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace mailtree
