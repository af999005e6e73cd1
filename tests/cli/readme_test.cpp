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

}  // namespace
}  // namespace mailtree::cli_test
