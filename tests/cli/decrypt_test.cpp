// What `mailtree decrypt` writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/identities.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string sealed(const Workspace& work, const std::string& file, const std::string& name) {
  const std::string out = work.path(name);
  return mailtree("encrypt " + file + " --cert " + identity("bob.pem") + " -o " + out).status == 0 ? out : "";
}

TEST(Decrypt, gives_back_the_signed_message_that_was_encrypted) {
  const Workspace work;
  for (const char* options : {"", " --opaque"}) {
    const std::string file = sealed(work, signedMail(work, kLetter, as("alice") + options), "sealed");
    const Result result = mailtree("decrypt " + file + as("bob") + " -o " + work.path("open"));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(mailtree("verify " + work.path("open") + trusted()).status, 0) << options;
  }
}

TEST(Decrypt, every_field_is_there_once_and_the_encrypted_one_wins) {
  const Workspace work;
  std::string mail = readFile(sealed(work, work.write("m.eml", kLetter), "sealed"));
  mail =
      "Received: by a.example; Sat, 21 Nov 2026 08:30:00 +0100\r\nSVX-Bounce-Address: a@b.example\r\n" + mail;
  mail.replace(mail.find("Subject: Boat"), 13, "Subject: ...");
  const Result result = mailtree("decrypt " + work.write("m.eml", mail) + as("bob"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("the field Subject is the encrypted one"));
  EXPECT_EQ(result.out, "Received: by a.example; Sat, 21 Nov 2026 08:30:00 +0100\r\n" + std::string(kLetter));
}

TEST(Decrypt, every_command_opens_what_a_gateway_made_an_attachment) {
  const Workspace work;
  std::string mail = readFile(sealed(work, signedMail(work, kLetter, as("alice")), "sealed"));
  mail.replace(mail.find("pkcs7-mime"), 10, "octet-stream");
  const std::string file = work.write("m.eml", mail) + as("bob");
  for (const char* verb : {"body ", "decrypt "})
    EXPECT_THAT(mailtree(verb + file).out, HasSubstr("Shall we?\r\n")) << verb;
  EXPECT_THAT(mailtree("show " + file).out, HasSubstr("[encrypted]"));
  EXPECT_EQ(mailtree("verify " + file + trusted()).status, 0);
}

TEST(Decrypt, goes_through_a_signature_and_says_that_it_is_gone) {
  const Workspace work;
  for (const char* options : {"", " --opaque"}) {
    const std::string inner = readFile(sealed(work, work.write("m.eml", kLetter), "sealed"));
    const Result result = mailtree("decrypt " + signedMail(work, inner, as("alice") + options) + as("bob"));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, kLetter) << options;
    EXPECT_THAT(result.err, HasSubstr("a signature stood around")) << options;
  }
}

TEST(Decrypt, content_that_is_no_message_becomes_its_text) {
  if (shell("openssl version").status != 0) GTEST_SKIP() << "there is no openssl command";
  const Workspace work;
  for (const std::string text : {"just text\r\n", "Subject: other\r\n\r\nend\r\n", "Note: x\r\nmore\r\n"}) {
    const Result made = shell("openssl cms -encrypt -binary -aes256 -subject Hi -outform SMIME -in " +
                              work.write("t", text) + " " + identity("bob.pem") + " > " + work.path("m"));
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(mailtree("decrypt " + work.path("m") + as("bob")).out,
              "Subject: Hi\r\nMIME-Version: 1.0\r\nContent-Type: text/plain\r\n\r\n" + text);
  }
}

TEST(Decrypt, takes_no_field_of_transport_from_inside) {
  const Workspace work;
  const std::string mail = work.write(
      "m.eml", std::string("Received: by inside\r\nDelivered-To: a@inside\r\nAuthentication-Results: inside; "
                           "spf=pass\r\nReturn-Path: <a@inside>\r\nX-Own: kept\r\n") +
                   kLetter);
  std::string changed = readFile(sealed(work, mail, "sealed"));
  for (std::size_t at = 0; (at = changed.find("inside", at)) != std::string::npos;)
    changed.replace(at, 6, "outside");
  const std::string out = mailtree("decrypt " + work.write("s", changed) + as("bob")).out;
  EXPECT_THAT(out, HasSubstr("Received: by outside\r\n"));
  EXPECT_THAT(out, Not(HasSubstr(" inside"))) << out;
  EXPECT_THAT(out, Not(HasSubstr("@inside"))) << out;
  EXPECT_THAT(out, HasSubstr("X-Own: kept\r\n"));
}

TEST(Decrypt, writes_nothing_when_it_cannot) {
  const Workspace work;
  const std::string good = readFile(sealed(work, work.write("m.eml", kLetter), "sealed"));
  std::string changed = good;
  char& letter = changed[changed.rfind('\n', changed.size() - 3) - 30];
  letter = letter == 'A' ? 'B' : 'A';
  const struct {
    const char* name;
    std::string mail, options;
    const char* message;
  } rows[] = {{"another's key", good, as("carol"), "nothing could be decrypted: "},
              {"no key", good, "", "nothing could be decrypted: "},
              {"not encrypted", kLetter, as("bob"), "it is not encrypted as a whole"},
              {"signed only", readFile(signedMail(work, kLetter, as("alice"))), as("bob"),
               "it is not encrypted as a whole"}};
  for (const auto& row : rows) {
    const Result result =
        mailtree("decrypt " + work.write("m", row.mail) + row.options + " -o " + work.path("out"));
    EXPECT_EQ(result.status, 1) << row.name;
    EXPECT_THAT(result.err, HasSubstr(row.message)) << row.name;
    EXPECT_FALSE(std::filesystem::exists(work.path("out"))) << row.name;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
