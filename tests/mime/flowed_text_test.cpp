#include "mailtree/mime/FlowedText.h"

#include "mailtree/base/TextWidth.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

TEST(FlowedText, IsUnwrapped) {
  const Row rows[] = {
      {"a \r\nb \r\nc\r\nd", "a b c\nd"},
      {"a \rb\rc\n", "a b\nc\n"},
      {"> a \n> b\n>> c \n> d\n>e", "> a b\n>> c\n> d\n> e"},
      {" >a\n  b \n From c\n>  d\n>\n", ">a\n b From c\n>  d\n>\n"},
      {"a \n-- \nb \nc", "a\n-- \nb c"},
      {"> a \n> -- \n> b", "> a\n> -- \n> b"},
      {"a \n\nb \n", "a\n\nb\n"},
      {"", ""},
  };
  expectEach([](const std::string& text) { return unwrapFlowed(text, /*delSp=*/false); }, rows);
  EXPECT_EQ(unwrapFlowed("日本 \n語  \nx\n", /*delSp=*/true), "日本語 x\n");
}

TEST(FlowedText, IsWrapped) {
  const std::string word = repeat("x", 39);
  const std::string wide = repeat("語", 20);
  const Row rows[] = {
      {word + " " + word, word + " \n" + word},
      {"> " + word + " " + word, "> " + word + " \n> " + word},
      {wide + " " + wide, wide + " \n" + wide},
      {word + word + " >a  ", word + word + " \n >a"},
      {" a\n>b\n> c\nFrom d\nFromm\n-- \n>> \n", "  a\n >b\n> c\n From d\nFromm\n-- \n>>\n"},
      {"-- " + word + word + " c", "-- " + word + word + " \nc"},
  };
  expectEach([](const std::string& text) { return wrapFlowed(text); }, rows);
}

TEST(FlowedText, UnwrappingUndoesWrapping) {
  for (std::mt19937::result_type seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    std::string text = randomText(random,
                                  {"a", "b c", "--", "-- ", ">", "> ", ">> ", "\n", "\n\n", "From ", " ",
                                   "  ", "\t", "語", repeat("x", 30), repeat("word ", 9), repeat("> ", 30)},
                                  40);
    for (std::size_t at; (at = text.find(" \n")) != text.npos;) text.erase(at, 1);
    text += ".";
    EXPECT_EQ(unwrapFlowed(wrapFlowed(text), /*delSp=*/false), text) << seed;
  }
}

TEST(FlowedText, IsLinear) {
  expectEndsSoon([](const std::string& text) { return unwrapFlowed(wrapFlowed(text) + text, true); },
                 {"> ", ">", " ", "x", "x ", ">x ", "\u0301 ", "-- ", "> a \n", ">> a \n> b \n", "x \n"});
}

}  // namespace
}  // namespace mailtree
