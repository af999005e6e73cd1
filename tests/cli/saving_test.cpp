// Files that the command writes: whole or not at all, and for whom.
#include <gtest/gtest.h>

#include "tests/cli/identities.h"

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

TEST(Saving, keeps_what_was_encrypted_for_its_owner) {
  const Workspace work;
  work.write("m", "From: a@x.org\r\nContent-Disposition: attachment; filename=f\r\n\r\nsecret\r\n");
  work.write("key", std::string(64, '0'));
  const std::string bob = " --cert " + identity("bob.pem"), opened = bob + " --key " + identity("bob.key");
  const std::string rows[] = {
      "encrypt m -o sealed" + bob + " && $mailtree decrypt sealed -o f" + opened,
      "extract sealed --all" + opened,
      "extract sealed --part 2 -o f" + opened,
      "aes encrypt m --key-file key -o hidden && $mailtree aes decrypt hidden --key-file key -o f",
  };
  for (const std::string& verbs : rows) {
    EXPECT_EQ(shell("cd " + work.path("") + "; umask 022; rm -f f; $mailtree " + verbs).status, 0) << verbs;
    EXPECT_EQ(fs::status(work.path("f")).permissions(), fs::perms(0600)) << verbs;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
