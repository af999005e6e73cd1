#include "mailtree/base/SubstringSet.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace mailtree {
namespace {

std::string randomText(std::mt19937& random, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += static_cast<char>('a' + random() % 2);
  return text;
}

TEST(SubstringSet, finds_what_a_plain_search_finds) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    const std::string text = randomText(random, random() % 40);
    SubstringSet set;
    std::vector<std::string> wanted;
    for (int i = 0; i < 12; ++i) {
      wanted.push_back(randomText(random, random() % 7));
      set.add(wanted.back());
    }
    for (int twice = 0; twice < 2; ++twice) {
      const std::vector<bool> found = set.findIn(text);
      for (std::size_t i = 0; i < wanted.size(); ++i)
        EXPECT_EQ(found[i], !wanted[i].empty() && text.find(wanted[i]) != std::string::npos)
            << wanted[i] << " in " << text;
    }
  }
}

}  // namespace
}  // namespace mailtree
