// What `mailtree encrypt` writes, and who can read it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/identities.h"
#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Encrypt, everybody_named_reads_it_by_every_cipher) {
  const Workspace work;
  const std::string mail = work.write("m.eml", kLetter), out = work.path("out.eml");
  const std::string readers[] = {"alice", "bob", "carol", "dave"};
  std::string to;
  for (const std::string& name : readers) to += " --cert " + identity(name + ".pem");
  for (const std::string cipher :
       {"aes-128-cbc", "aes-192-cbc", "aes-256-cbc", "aes-128-gcm", "aes-256-gcm", "3des"}) {
    for (const char* transport : {"", " --oaep"}) {
      const Result made = mailtree("encrypt " + mail + to + " --cipher " + cipher + transport + " -o " + out);
      ASSERT_EQ(made.status, 0) << cipher << transport << '\n' << made.err;
      EXPECT_THAT(readFile(out), Not(HasSubstr("Shall we?"))) << cipher;
      for (const std::string& name : readers)
        EXPECT_EQ(mailtree("body " + out + as(name)).out, "Shall we?\r\n")
            << cipher << transport << ' ' << name;
      EXPECT_EQ(mailtree("body --text " + out + as("mallory")).status, 1) << cipher;
    }
  }
}

TEST(Encrypt, looks_up_every_recipient_and_names_all_that_are_missing) {
  const Workspace work;
  const std::string people = " --certs " + identity("");
  const std::string mail = work.write("m.eml",
                                      "From: alice@example.com\r\nTo: bob@example.com, "
                                      "no1@example.com\r\nCc: no2@example.com, no1@EXAMPLE.com\r\nBcc: "
                                      "no3@example.com, carol@example.com\r\n\r\nx\r\n");
  const Result result = mailtree("encrypt " + mail + people);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  for (const char* line : {"no1@example.com (To)", "no2@example.com (Cc)", "no3@example.com (Bcc)"})
    EXPECT_THAT(result.err, HasSubstr(line));
  EXPECT_THAT(result.err, Not(HasSubstr("no certificate for bob@")));
  EXPECT_THAT(result.err, Not(HasSubstr("no1@EXAMPLE.com"))) << "named already";
}

TEST(Encrypt, hidden_recipients_can_read_and_are_not_named) {
  const Workspace work;
  const std::string out = work.path("out.eml");
  const std::string mail = work.write(
      "m.eml", std::string("Bcc: carol@example.com\r\nSVX-Bounce-Address: a@b.example\r\n") + kLetter);
  const Result result = mailtree("encrypt " + mail + " --certs " + identity("") + " -o " + out);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("hidden recipients"));
  EXPECT_THAT(readFile(out), Not(HasSubstr("carol")));
  const Result opened = mailtree("decrypt " + out + as("carol"));
  EXPECT_THAT(opened.out, HasSubstr("Shall we?"));
  EXPECT_THAT(opened.out, Not(HasSubstr("carol")));
  EXPECT_THAT(opened.out, Not(HasSubstr("SVX-")));
}

TEST(Encrypt, refuses_before_it_writes) {
  const Workspace work;
  const std::string mail = work.write("m.eml", kLetter);
  const struct {
    std::string options;
    int status;
    const char* message;
  } rows[] = {{"", 2, "--cert or --certs"},
              {" --cert " + identity("mallory.pem"), 1, "not meant for encryption"},
              {" --cert " + identity("expired.pem"), 1, "has expired: it was valid until 2002-01-01"},
              {" --cert " + identity("bob.pem") + " --cipher rc2", 2, "aes-256-gcm"},
              {" --certs " + work.path("missing"), 3, "missing"},
              {" --certs " + identity("bob.pem"), 3, "bob.pem: is no folder"}};
  for (const auto& row : rows) {
    const Result result = mailtree("encrypt " + mail + row.options);
    EXPECT_EQ(result.status, row.status) << row.options << '\n' << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.message)) << row.options;
    EXPECT_EQ(result.out, "") << row.options;
  }
}

TEST(Encrypt, layers_in_any_order_verify) {
  const Workspace work;
  const std::string mail = work.write("m0", kLetter);
  const std::string sign = "sign" + as("alice"), seal = "encrypt --cert " + identity("bob.pem") + " ";
  const struct {
    const char* name;
    std::vector<std::string> steps;
  } rows[] = {{"signed, then encrypted", {sign, seal}},
              {"opaque, then encrypted", {sign + "--opaque ", seal + "--cipher aes-256-gcm "}},
              {"encrypted, then signed", {seal, sign}},
              {"triple", {sign, seal, sign + "--opaque "}}};
  for (const auto& row : rows) {
    std::string file = mail;
    for (const std::string& step : row.steps) {
      const std::string next = work.path("m" + std::to_string(&step - row.steps.data() + 1));
      const Result result = mailtree(step + file + " -o " + next);
      ASSERT_EQ(result.status, 0) << row.name << '\n' << result.err;
      file = next;
    }
    const Result verified = mailtree("verify " + file + as("bob") + trusted());
    EXPECT_EQ(verified.status, 0) << row.name << '\n' << verified.out;
    EXPECT_EQ(mailtree("body " + file + as("bob")).out, "Shall we?\r\n") << row.name;
    EXPECT_EQ(shown(file + as("bob"))["security"]["decrypted"], true) << row.name;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
