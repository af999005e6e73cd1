// Files that the command writes: whole or not at all.
#include <gtest/gtest.h>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

namespace fs = std::filesystem;

TEST(Saving, leaves_no_unfinished_file_when_a_signal_ends_it) {
  const Workspace work;
  const std::string body = "\r\n" + std::string(300'000, 'x') + "\r\n",
                    head = "Content-Type: message/rfc822\r\n";
  work.write("m",
             "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" + head + "\r\n" + body + "--b--\r\n");
  work.write("letter", "To: {{to}}\r\n" + body);
  work.write("data", "to\na@x.org\n");
  fs::create_directory(work.path("out"));
  for (const std::string verb :
       {"extract m --all --dir out", "extract m --part 1 -o out/f", "messages m --all --dir out",
        "messages m --extract 0 -o out/f", "merge letter --data data --dir out",
        "merge letter --data data --mbox out/f", "write m -o out/f", "xml m -o out/f"}) {
    // The signal comes in the middle of the file: it gets too large.
    EXPECT_NE(shell("cd " + work.path("") + "; ulimit -c 0; ulimit -f 100; $mailtree " + verb).status, 0)
        << verb;
    EXPECT_TRUE(fs::is_empty(work.path("out"))) << verb;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
