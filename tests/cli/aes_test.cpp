// What `mailtree aes` makes of a message and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string keyOf(const Workspace& work, int bits, char digit) {
  return " --bits " + std::to_string(bits) + " --key-file " +
         work.write("key", std::string(static_cast<std::size_t>(bits) / 4, digit) + "\n");
}

TEST(Aes, every_mode_and_size_gives_the_samples_back) {
  const Workspace work;
  std::size_t turn = 0;  // every sample in every mode, and every mode with every size
  for (const char* name : {"plain", "cyrillic", "newsletter"}) {
    ASSERT_EQ(mailtree("write " + sample(name) + " -o " + work.path("before")).status, 0);
    const auto before = shown(work.path("before"));
    for (const std::string mode : {"cbc", "ctr", "gcm"}) {
      constexpr int kBits[] = {128, 192, 256};
      const std::string options = " --mode " + mode + keyOf(work, kBits[turn++ % 3], 'a');
      ASSERT_EQ(
          mailtree("aes encrypt " + work.path("before") + options + " -o " + work.path("hidden")).status, 0);
      EXPECT_THAT(readFile(work.path("hidden")), HasSubstr("x-original-encoding: ")) << name;
      const Result result =
          mailtree("aes decrypt " + work.path("hidden") + options + " -o " + work.path("after"));
      EXPECT_EQ(result.status, 0) << name << options << result.err;
      EXPECT_EQ(shown(work.path("after"))["tree"], before["tree"]) << name << options;
    }
    ++turn;
  }
}

TEST(Aes, password_needs_nothing_but_itself) {
  const Workspace work;
  const std::string right = " --password-file " + work.write("right", "grüße\n");
  const std::string hidden = work.path("hidden");
  ASSERT_EQ(mailtree("aes encrypt " + sample("plain") + right + " -o " + hidden).status, 0);
  const Result again = mailtree("aes encrypt " + sample("plain") + right);
  EXPECT_NE(again.out, readFile(hidden)) << "the same salt twice";
  const Result opened = mailtree("aes decrypt " + hidden + right);
  EXPECT_EQ(opened.status, 0) << opened.err;
  EXPECT_THAT(opened.out, Not(HasSubstr("X-Mailtree-Salt")));
  EXPECT_EQ(opened.out, readFile(sample("plain")));
}

TEST(Aes, is_not_done_twice) {
  const Workspace work;
  const std::string key = keyOf(work, 256, 'a'), password = " --password-file " + work.write("pw", "x");
  const std::string hidden = work.path("hidden");
  for (const std::string& first : {key, password}) {
    ASSERT_EQ(mailtree("aes encrypt " + sample("attachments") + first + " -o " + hidden).status, 0);
    for (const std::string& second : {key, password}) {
      const Result result = mailtree("aes encrypt " + hidden + second);
      EXPECT_EQ(result.status, 1) << first << second;
      EXPECT_THAT(result.err, HasSubstr("is encrypted already")) << first << second;
      EXPECT_EQ(result.out, "") << first << second;
    }
  }
}

TEST(Aes, leaves_a_salt_alone_that_it_did_not_need) {
  const Workspace work;
  const std::string key = keyOf(work, 256, 'a'), hidden = work.path("hidden");
  ASSERT_EQ(mailtree("aes encrypt " + sample("plain") + key + " -o " + hidden).status, 0);
  const std::string salted = work.write("salted", "X-Mailtree-Salt: 00\r\n" + readFile(hidden));
  EXPECT_THAT(mailtree("aes decrypt " + salted + key).out, HasSubstr("X-Mailtree-Salt: 00"));
}

TEST(Aes, opens_what_was_encrypted_before_bodies_were_bound_to_their_places) {
  const Workspace work;
  const std::string key = keyOf(work, 256, 'a');
  const std::string old = work.write(
      "old",
      "Content-Type: text/plain\r\nx-original-encoding:\r\nContent-Transfer-Encoding: base64\r\n\r\n"
      "VG5vQVpjR3dRSUNUcmdLRXd6SkxmVDNnc0daOHljUCtMQkxMTHQyMkdCMXANCg==\r\n");
  EXPECT_EQ(mailtree("aes decrypt " + old + key).status, 1);
  EXPECT_THAT(mailtree("aes decrypt --old " + old + key).out, HasSubstr("\r\n\r\nold"));
}

TEST(Aes, refuses_a_tree_that_loading_would_reorder) {
  const Workspace work;
  std::string texts = "Content-Type: multipart/mixed; boundary=b\n\n";
  for (const std::string type : {"plain", "html", "plain", "html"})
    texts += "--b\nContent-Type: text/" + type + "\n\nx\n";
  const Result result =
      mailtree("aes encrypt " + work.write("loose", texts + "--b--\n") + keyOf(work, 256, 'a'));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("in another order"));
  EXPECT_EQ(result.out, "");
}

TEST(Aes, a_password_is_the_first_line_and_nothing_less) {
  const Workspace work;
  const std::string hidden = work.path("hidden"), mail = sample("plain"), longest(1023, 'x');
  const struct {
    const char* name;
    std::string locked, opened;
    int status;
  } rows[] = {{"line end of mail", "a\nrest", "a\r\n", 0},
              {"control character",
               "a\x03"
               "b",
               "a\x03", 1},
              {"return inside", "a\rb", "ab", 1},
              {"two returns", "a\r\r\n", "a\n", 1},
              {"longest", longest + "\r\n", longest, 0},
              {"too long", longest, longest + "y", 3}};
  for (const auto& row : rows) {
    ASSERT_EQ(
        mailtree("aes encrypt " + mail + " --password-file " + work.write("a", row.locked) + " -o " + hidden)
            .status,
        0)
        << row.name;
    const Result result =
        mailtree("aes decrypt " + hidden + " --password-file " + work.write("b", row.opened));
    EXPECT_EQ(result.status, row.status) << row.name << result.err;
  }
  const Result cut = shell("MAILTREE_PASSWORD=" + longest + "y \"$mailtree\" aes decrypt " + hidden);
  EXPECT_EQ(cut.status, 3);
  EXPECT_THAT(cut.err, HasSubstr("MAILTREE_PASSWORD: is too long"));
}

TEST(Aes, tries_every_password) {
  const Workspace work;
  const std::string right = " --password-file " + work.write("right", "right"),
                    wrong = " --password-file " + work.write("wrong", "wrong"), hidden = work.path("hidden");
  for (const std::string mode : {" --mode gcm", " --mode cbc"}) {
    ASSERT_EQ(mailtree("aes encrypt " + sample("plain") + right + mode + " -o " + hidden).status, 0);
    for (const std::string& given : {right + wrong, wrong + wrong + right}) {
      const Result result = mailtree("aes decrypt " + hidden + given + mode);
      EXPECT_EQ(result.out, readFile(sample("plain"))) << given << mode << result.err;
    }
    EXPECT_EQ(mailtree("aes decrypt " + hidden + wrong + wrong + mode).status, 1) << mode;
  }
}

TEST(Aes, an_empty_password_locks_nothing) {
  const Workspace work;
  for (const std::string& given :
       {" --password-file " + work.write("pw", "\nrest\n"), " --password-fd 3 3< " + work.write("no", "")}) {
    const Result result = mailtree("aes encrypt " + sample("plain") + given);
    EXPECT_EQ(result.status, 1) << given;
    EXPECT_THAT(result.err, HasSubstr("empty password")) << given;
    EXPECT_EQ(result.out, "") << given;
  }
}

TEST(Aes, asks_twice_for_a_password_to_encrypt_with) {
  if (!hasTerminal()) GTEST_SKIP() << "there is no script(1)";
  const Workspace work;
  const std::string out = work.path("hidden");
  const struct {
    const char *typed, *again;
    bool isDone;
  } rows[] = {{"right", "right", true}, {"right", "wrong", false}, {"", "", false}};
  for (const auto& row : rows) {
    std::filesystem::remove(out);
    const Result result = shell(std::string("(sleep 1; echo '") + row.typed + "'; sleep 1; echo '" +
                                row.again + "') | script -qec '\"$mailtree\" aes encrypt " + sample("plain") +
                                " -o " + out + "' /dev/null");
    EXPECT_EQ(std::filesystem::exists(out), row.isDone) << row.typed << ", " << row.again << '\n'
                                                        << result.out;
  }
}

TEST(Aes, refuses_and_writes_nothing) {
  const Workspace work;
  const std::string hidden = work.path("hidden"), right = keyOf(work, 256, 'a');
  ASSERT_EQ(mailtree("aes encrypt " + sample("plain") + right + " -o " + hidden).status, 0);
  const struct {
    std::string options;
    int status;
    const char* message;
  } rows[] = {{" --key-file " + work.write("other", std::string(64, 'b')), 1, "the key is another one"},
              {" --key-file " + work.write("short", "abc"), 3, "is no key of 256 bits"},
              {" --password-file " + work.write("pw", "x"), 1, "X-Mailtree-Salt"},
              {" --password-fd abc", 2, "'abc': it must be the number of an open file"},
              {" --password-fd=-1", 2, "'-1': it must be the number of an open file"},
              {right + " --mode ecb", 2, "cbc, ctr or gcm"},
              {right + " --bits 512", 2, "--bits"}};
  for (const auto& row : rows) {
    const Result result = mailtree("aes decrypt " + hidden + row.options);
    EXPECT_EQ(result.status, row.status) << row.options << '\n' << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.message)) << row.options;
    EXPECT_EQ(result.out, "") << row.options;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
