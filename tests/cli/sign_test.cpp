// What `mailtree sign` writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cli/identities.h"
#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string letterWith(const std::string& body) {
  return "From: alice@example.com\r\nTo: bob@example.com\r\nSubject: x\r\nMIME-Version: 1.0\r\nContent-Type: "
         "text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n" +
         body;
}

TEST(Sign, what_it_writes_verifies_and_survives_write) {
  const Workspace work;
  const std::string attached = readFile(sample("attachments"));
  const std::string mixed = "From: alice@example.com\r\n" + attached.substr(attached.find("MIME-Version:"));
  const struct {
    const char* name;
    std::string mail;
  } mails[] = {{"empty", letterWith("")},
               {"one byte", letterWith("x")},
               {"trailing blanks", letterWith("a  \r\nb\t\r\n \r\n")},
               {"8bit without a final line break", letterWith("gr\xC3\xBC\xC3\x9F")},
               {"From at the begin of a line", letterWith("From me\r\n--\r\n-- \r\n.\r\n")},
               {"lines of Unix", "From: alice@example.com\nSubject: x\n\na\nb\n"},
               {"attachments", mixed}};
  for (const char* options : {"", " --opaque", " --digest sha-384 --pss", " --opaque --digest SHA512"}) {
    for (const auto& row : mails) {
      const std::string file = signedMail(work, row.mail, as("alice") + options);
      const Result direct = mailtree("verify " + file + trusted());
      EXPECT_EQ(direct.status, 0) << options << ", " << row.name << '\n' << file << direct.out << direct.err;
      ASSERT_EQ(mailtree("write " + file + " -o " + work.path("again.eml")).status, 0);
      EXPECT_EQ(mailtree("verify " + work.path("again.eml") + trusted()).status, 0)
          << options << ", " << row.name;
    }
  }
}

TEST(Sign, says_that_it_is_mime) {
  const Workspace work;
  for (const char* options : {"", " --opaque"})
    EXPECT_THAT(readFile(signedMail(work, "From: alice@example.com\r\n\r\nx\r\n", as("alice") + options)),
                HasSubstr("MIME-Version: 1.0\r\n"))
        << options;
}

TEST(Sign, nothing_is_left_that_servers_would_change) {
  const Workspace work;
  const std::string files =
      "From: alice@example.com\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; "
      "boundary=b\r\n\r\n--b\r\n"
      "Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: "
      "binary\r\n\r\n\xFF\xFE\r\n--b--\r\n";
  const struct {
    const char* name;
    std::string mail;
    const char* encoding;
  } rows[] = {{"8bit", letterWith("gr\xC3\xBC\xC3\x9F\r\n"), "quoted-printable"},
              {"long line", letterWith(std::string(1500, 'x') + "\r\n"), "quoted-printable"},
              {"binary file", files, "base64"}};
  for (const auto& row : rows) {
    const std::string file = signedMail(work, row.mail, as("alice")), out = readFile(file);
    const std::string content = out.substr(out.find("\r\n--"));
    EXPECT_THAT(content, HasSubstr(std::string("Content-Transfer-Encoding: ") + row.encoding)) << row.name;
    EXPECT_TRUE(std::ranges::all_of(out, [](char c) { return static_cast<unsigned char>(c) < 128; }))
        << row.name;
    EXPECT_THAT(out, Not(HasSubstr(std::string(999, 'x')))) << row.name;
    EXPECT_EQ(mailtree("verify " + file + trusted()).status, 0) << row.name;
    const std::string plain = work.write("m.eml", row.mail);
    EXPECT_EQ(mailtree("body " + file).out, mailtree("body " + plain).out) << row.name;
  }
}

TEST(Sign, every_kind_of_key_signs) {
  const Workspace work;
  for (const std::string name : {"alice", "bob", "carol", "dave"}) {
    const std::string mail = "From: " + name + "@example.com\r\n\r\nx\r\n";
    const Result result = mailtree("verify " + signedMail(work, mail, as(name)) + trusted());
    EXPECT_EQ(result.status, 0) << name << '\n' << result.out;
  }
}

TEST(Sign, hidden_and_internal_fields_do_not_get_inside) {
  const Workspace work;
  for (const char* options : {"", " --opaque"}) {
    const std::string file =
        signedMail(work,
                   std::string("Bcc: dave@example.com\r\nResent-Bcc: dave@example.com\r\nSVX-Bounce-Address: "
                               "a@b.example\r\nsvz-size: 3\r\n") +
                       kLetter,
                   as("alice") + options);
    const std::string inside = mailtree("body " + file).out + readFile(file);
    for (const char* gone : {"Bcc", "dave@", "SVX-", "svz-"})
      EXPECT_THAT(inside, Not(HasSubstr(gone))) << options;
    EXPECT_THAT(mailtree("show --json " + file).out, Not(HasSubstr("dave@example.com"))) << options;
  }
}

TEST(Sign, signs_what_is_signed_already_as_it_is) {
  const Workspace work;
  const std::string once = readFile(signedMail(work, kLetter, as("alice")));
  const std::string boundary = once.substr(once.find("\r\n--"), 30);
  const std::string content = once.substr(once.find(boundary), once.rfind(boundary) - once.find(boundary));
  const std::string twice = signedMail(work, once, as("alice") + " --digest sha512");
  EXPECT_THAT(readFile(twice), HasSubstr(content));
  const Result result = mailtree("verify " + twice + trusted());
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("layer 2: "));
}

TEST(Sign, finds_the_signer_by_the_sender) {
  const Workspace work;
  const std::string people = " --certs " + identity("");
  const std::string file = signedMail(work, "From: Carol <carol@EXAMPLE.com>\r\n\r\nx\r\n", people);
  EXPECT_EQ(mailtree("verify " + file + trusted()).status, 0) << file;
  const Result nobody = mailtree("sign " + work.write("m", "From: nobody@example.com\r\n\r\nx") + people);
  EXPECT_EQ(nobody.status, 1);
  EXPECT_THAT(nobody.err, HasSubstr("fit to sign, for nobody@example.com"));
  EXPECT_EQ(nobody.out, "");
}

TEST(Sign, opens_keys_with_a_password_from_anywhere_but_the_command_line) {
  const Workspace work;
  const std::string mail = work.write("m.eml", kLetter), right = work.write("pw", "secret\r\nrest\n");
  const std::string p12 = " --p12 " + identity("alice.p12");
  const struct {
    std::string before, after;
    int status;
  } rows[] = {{"", " --password-file " + right, 0},
              {"", " --password-file " + work.write("wrong", "Secret") + " --password-file " + right, 0},
              {"", " --password-fd 3 3< " + right, 0},
              {"MAILTREE_PASSWORD=secret ", "", 0},
              {"MAILTREE_PASSWORD=Secret ", "", 3},
              {"setsid ", "", 3},  // no terminal to ask on
              {"", " --password-file " + work.path("missing"), 3},
              {"", " --password-fd 9 9<&-", 3}};
  for (const auto& row : rows) {
    const Result result = shell(row.before + "\"$mailtree\" sign " + mail + p12 + row.after);
    EXPECT_EQ(result.status, row.status) << row.before << row.after << '\n' << result.err;
    EXPECT_EQ(result.out.empty(), row.status != 0) << row.before << row.after;
  }
}

TEST(Sign, asks_for_a_password_on_the_terminal_and_does_not_show_it) {
  if (!hasTerminal()) GTEST_SKIP() << "there is no script(1)";
  const Workspace work;
  const Result result =
      shell("(sleep 1; echo secret) | script -qec '\"$mailtree\" sign " + work.write("m.eml", kLetter) +
            " --p12 " + identity("alice.p12") + " -o " + work.path("out.eml") + "' /dev/null");
  EXPECT_THAT(result.out, HasSubstr("Password for " + identity("alice.p12")));
  EXPECT_THAT(result.out, Not(HasSubstr("secret\r\n"))) << "shown while it was typed";
  EXPECT_EQ(mailtree("verify " + work.path("out.eml") + trusted()).status, 0);
}

TEST(Sign, leaves_the_terminal_as_it_was_when_a_signal_comes) {
  if (!hasTerminal()) GTEST_SKIP() << "there is no script(1)";
  const Workspace work;
  for (const std::string signal : {"INT", "TERM", "HUP"}) {
    const std::string pid = work.path("pid-" + signal);
    const std::string session =
        work.write("session", "(sleep 2; kill -" + signal + " $(cat " + pid + ")) &\nsh -c 'echo $$ > " +
                                  pid + "; exec \"$mailtree\" sign " + work.write("m.eml", kLetter) +
                                  " --p12 " + identity("alice.p12") + "'\nstty -a | grep -o -e '-*echo '\n");
    EXPECT_THAT(shell("sleep 5 | script -qec 'sh " + session + "' /dev/null").out, HasSubstr("\necho "))
        << signal;
  }
}

TEST(Sign, warns_of_what_will_be_held_against_it) {
  const Workspace work;
  const std::string mail = work.write("m.eml", kLetter);
  const struct {
    std::string options;
    const char* warning;
  } rows[] = {{as("expired"), "warning: the certificate has expired: it was valid until 2002-01-01"},
              {as("carol") + "--pss", "warning: --pss has no effect"},
              {as("bob"), "warning: the certificate is not issued to alice@example.com"}};
  for (const auto& row : rows) {
    const Result result = mailtree("sign " + mail + row.options);
    EXPECT_EQ(result.status, 0) << row.options;
    EXPECT_THAT(result.err, HasSubstr(row.warning)) << row.options;
  }
  EXPECT_EQ(mailtree("sign " + mail + as("alice") + "--pss").err, "");
}

TEST(Sign, refuses_what_would_be_worth_nothing) {
  const Workspace work;
  const std::string mail = work.write("m.eml", kLetter);
  const struct {
    std::string options;
    int status;
    const char* message;
  } rows[] = {{as("alice") + "--digest sha1", 2, "sha256, sha384 or sha512"},
              {as("alice") + "--digest md5", 2, "sha256, sha384 or sha512"},
              {" --cert " + identity("alice.pem"), 1, "has no private key"},
              {" --cert " + work.path("missing.pem"), 3, "missing.pem"},
              {" --cert " + mail, 3, "m.eml"},
              {as("ed25519"), 1, "could not be signed: Cannot sign mail with a key of this kind"}};
  for (const auto& row : rows) {
    const Result result = mailtree("sign " + mail + row.options);
    EXPECT_EQ(result.status, row.status) << row.options << '\n' << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.message)) << row.options;
    EXPECT_EQ(result.out, "") << row.options;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
