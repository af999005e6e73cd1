// What README.md tells the user to type.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

TEST(Readme, secure_mail_goes_round_as_it_says) {
  if (shell("openssl version").status != 0) GTEST_SKIP() << "there is no openssl command";
  const std::string readme = readFile(places::sourceFolder() + "/README.md");
  const std::size_t begin = readme.find("    for who in anna jo"), end = readme.find("\n\n", begin);
  ASSERT_NE(end, std::string::npos);
  const Workspace work;
  const Result result = shell("set -e; cd " + work.folder().string() +
                              "; mailtree() { \"$mailtree\" \"$@\"; }\n" + readme.substr(begin, end - begin));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, testing::HasSubstr("[encrypted]  [signature valid]"));
  EXPECT_THAT(result.out, testing::EndsWith("\nvalid: all of the content is signed by anna@see.example\n"));
}

TEST(Readme, shows_what_the_command_shows) {
  const std::string readme = readFile(places::sourceFolder() + "/README.md"), prompt = "    $ mailtree ";
  int shown = 0;
  for (std::size_t at = 0; (at = readme.find(prompt, at)) != std::string::npos; ++shown) {
    const std::size_t begin = at + prompt.size(), line = readme.find('\n', begin);
    std::string expected = readme.substr(line + 1);
    at = line + 1;
    // Up to the next command or to what is no longer indented.
    std::string output;
    for (std::size_t next = at; readme.compare(next, prompt.size(), prompt) != 0 &&
                                (readme[next] == '\n' || readme.compare(next, 4, "    ") == 0);) {
      const std::size_t end = readme.find('\n', next);
      output += readme[next] == '\n' ? "\n" : readme.substr(next + 4, end - next - 3);
      next = end + 1;
    }
    output.erase(output.find_last_not_of('\n') + 2);
    EXPECT_EQ(
        shell("cd " + places::sourceFolder() + " && \"$mailtree\" " + readme.substr(begin, line - begin)).out,
        output);
  }
  EXPECT_EQ(shown, 2);
}

}  // namespace
}  // namespace mailtree::cli_test
