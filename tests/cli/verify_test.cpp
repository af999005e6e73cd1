// What `mailtree verify` and `mailtree show` say of signatures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/identities.h"
#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  return text.replace(text.find(what), what.size(), by);
}

std::string boundaryOf(const std::string& mail) {
  const std::size_t begin = mail.find("boundary=\"") + 10;
  return mail.substr(begin, mail.find('"', begin) - begin);
}

std::string withFooter(const std::string& mail) {
  const std::string end = "--" + boundaryOf(mail) + "--";
  return replaced(mail, end,
                  "--" + boundaryOf(mail) + "\r\nContent-Type: text/plain\r\n\r\nPay here.\r\n" + end);
}

/// As a mailing list passes a message on: in a part of its own, with a text behind it.
std::string inMixed(const std::string& mail) {
  const std::string content = mail.substr(mail.find("Content-Type: "));
  return "From: Alice <alice@example.com>\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; "
         "boundary=list\r\n\r\n--list\r\n" +
         content + "\r\n--list\r\n\r\nFrom the list.\r\n--list--\r\n";
}

std::string attached(const std::string& mail) {
  return "From: Alice <alice@example.com>\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; "
         "boundary=out\r\n\r\n--out\r\n\r\nRead this:\r\n--out\r\nContent-Type: message/rfc822\r\n\r\n" +
         mail + "\r\n--out--\r\n";
}

TEST(Verify, says_yes_only_when_everything_is_right) {
  const Workspace work;
  const std::string good = readFile(signedMail(work, kLetter, as("alice")));
  const std::string erin = readFile(signedMail(work, "From: erin@example.com\r\n\r\nx\r\n", as("erin")));
  const std::string judy = readFile(signedMail(work, "From: judy@example.com\r\n\r\nx\r\n", as("judy")));
  const std::string oscar = readFile(signedMail(work, "From: oscar@example.com\r\n\r\nx\r\n", as("oscar")));
  ASSERT_EQ(mailtree("encrypt " + work.write("m", kLetter) + " --cert " + identity("bob.pem") + " -o " +
                     work.path("sealed"))
                .status,
            0);
  const std::string signedSeal = readFile(signedMail(work, readFile(work.path("sealed")), as("alice")));
  const std::string withSignedPart = readFile(
      signedMail(work, replaced(inMixed(good), "multipart/mixed", "multipart/related"), as("alice")));
  const std::string impostor = readFile(signedMail(work, kLetter, as("impostor")));
  const std::string untyped =
      replaced(readFile(signedMail(work, kLetter, as("alice") + "--opaque")), "pkcs7-mime", "octet-stream");
  const struct {
    const char* name;
    std::string mail, options;
    const char* verdict;
  } rows[] = {
      {"good", good, trusted(), "\nvalid: all of the content is signed by alice@example.com\n"},
      {"good among others", good, trusted() + "--trust " + identity("other-root.pem"), "\nvalid: "},
      {"no anchors", good, "", "\nNOT valid: the chain was not checked: no trust anchors given (--trust)\n"},
      {"another's anchor", good, " --trust " + identity("other-root.pem"),
       "\nNOT valid: the chain is not trusted: "},
      {"impostor", impostor, trusted(), "\nNOT valid: the chain is not trusted: "},
      {"revoked", erin, trusted() + "--crl " + identity("revoked.crl"),
       "\nNOT valid: the signer's certificate is revoked"},
      {"issuer for web servers", judy, trusted() + "--cert " + identity("web-issuer.pem"),
       "\nNOT valid: the chain is not trusted"},
      {"changed text", replaced(good, "Shall we?", "Shall me?"), trusted(),
       "\nNOT valid: the content is not what was signed"},
      {"another sender", replaced(good, "alice@example.com", "bob@example.com"), trusted(),
       "\nNOT valid: the signer's certificate is not issued to bob@example.com\n"},
      {"second From field", "From: bob@example.com\r\n" + good, trusted(),
       "\nNOT valid: there is more than one From field\n"},
      {"empty From field", "From:\r\n" + good, trusted(), "\nNOT valid: there is more than one From field\n"},
      {"second From address", replaced(good, "<alice@example.com>", "<alice@example.com>, bob@example.com"),
       trusted(), "\nNOT valid: there is more than one From address\n"},
      {"another subject", replaced(good, "Subject: Boat", "Subject: Money"), trusted(),
       "\nNOT valid: the field Subject is another one inside than the one displayed\n"},
      {"no subject", replaced(good, "Subject: Boat\r\n", ""), trusted(),
       "\nNOT valid: the field Subject of the signed content is not the one displayed\n"},
      {"empty subject", replaced(good, "Subject: Boat", "Subject:"), trusted(),
       "\nNOT valid: the field Subject of the signed content is not the one displayed\n"},
      {"signed part with fields of its own", withSignedPart, trusted(), "\nvalid: "},
      {"part behind the signature", withFooter(good), trusted(),
       "\nNOT valid: only part 1.1 is covered by a signature\n"},
      {"passed on by a list", inMixed(good), trusted(),
       "\nNOT valid: only part 1.1 is covered by a signature\n"},
      {"octet-stream by its name", untyped, trusted(), "\nvalid: "},
      {"octet-stream, passed on by a list", inMixed(untyped), trusted(),
       "\nNOT valid: only part 1.1 is covered by a signature\n"},
      {"the same fields, written otherwise",
       replaced(good, "Alice <alice@example.com>", "=?utf-8?q?Alice?= <alice@EXAMPLE.com>"), trusted(),
       "\nvalid: all of the content is signed by alice@EXAMPLE.com\n"},
      {"encrypted inside, opened", signedSeal, trusted() + as("bob"), "\nvalid: "},
      {"encrypted inside, closed", signedSeal, trusted(),
       "\nNOT valid: the signed content is encrypted and could not be opened"},
      {"in an attached message", attached(good), trusted(), "NOT valid: not signed\n"},
      {"plain", kLetter, trusted(), "NOT valid: not signed\n"},
      {"sample", readFile(sample("signed")), " --trust " + identity("sample-signer.pem"), "\nvalid: "},
  };
  for (const auto& row : rows) {
    const std::string file = work.write("m.eml", row.mail);
    const Result result = mailtree("verify " + file + row.options);
    EXPECT_THAT('\n' + result.out, HasSubstr(row.verdict)) << row.name << result.err;
    EXPECT_EQ(result.status, std::string(row.verdict).starts_with("\nvalid") ? 0 : 1) << row.name;
    const auto json = nlohmann::json::parse(mailtree("verify --json " + file + row.options).out);
    EXPECT_EQ(json["security"]["verdict"]["valid"], result.status == 0) << row.name;
    if (result.status != 0) {
      EXPECT_THAT(mailtree("show " + file + row.options).out, Not(HasSubstr("[signature valid]")))
          << row.name;
    }
  }
  EXPECT_THAT(oscar, HasSubstr("multipart/signed"));
  EXPECT_THAT(mailtree("verify " + work.write("m.eml", oscar) + trusted()).out,
              HasSubstr("NOT valid: the signer's certificate is not meant for signing mail"));
}

TEST(Verify, shows_what_a_signature_leaves_out) {
  const Workspace work;
  const std::string good = readFile(signedMail(work, kLetter, as("alice")));
  const struct {
    std::string mail;
    const char* leftOut;
  } rows[] = {{withFooter(good), "2 text/plain"}, {inMixed(good), "4 text/plain"}};
  for (const auto& row : rows) {
    const std::string out = mailtree("show " + work.write("m.eml", row.mail) + trusted()).out;
    EXPECT_THAT(out, HasSubstr("signature valid, covers part 1.1 only, not part 1.2")) << out;
    EXPECT_THAT(out, HasSubstr("[not signed]")) << out;
    EXPECT_EQ(out.find("[not signed]"), out.rfind("[not signed]")) << out;
    EXPECT_GT(out.find("[not signed]"), out.find(row.leftOut)) << out;
  }
}

TEST(Verify, what_was_not_checked_says_so) {
  if (shell("openssl version").status != 0) GTEST_SKIP() << "there is no openssl command";
  const Workspace work;
  const std::string content = work.write("content", "Content-Type: text/plain\r\n\r\nx\r\n");
  const Result made =
      shell("openssl cms -sign -nocerts -md sha1 -from alice@example.com -in " + content + " -signer " +
            identity("alice.pem") + " -inkey " + identity("alice.key") + " > " + work.path("m"));
  ASSERT_EQ(made.status, 0) << made.err;
  const std::string file = work.path("m") + trusted() + "--cert " + identity("intermediate.pem") + " ";
  const std::string none = "not checked: no certificate of the signer";
  const std::string out = mailtree("verify " + file).out;
  const std::string lines[] = {"ok  digest     sha1, the content is the one signed\n",
                               "?   signature  " + none, "?   chain      " + none,
                               "NOT valid: the signature was " + none + "\n"};
  for (const std::string& line : lines) EXPECT_THAT(out, HasSubstr(line));
  EXPECT_THAT(mailtree("show " + file).out, HasSubstr("signature " + none));
  const auto signer = shown(file)["security"]["layers"][0]["signers"][0];
  EXPECT_EQ(signer["digest_matched"], true);
  for (const char* name :
       {"certificate", "signature_verified", "chain_trusted", "revoked", "address_matches"})
    EXPECT_TRUE(signer[name].is_null()) << name;
  EXPECT_EQ(signer["weaknesses"], nlohmann::json({"digest sha1"}));

  const std::string known = file + "--cert " + identity("alice.pem");
  EXPECT_THAT(mailtree("verify " + known).out,
              HasSubstr("alice@example.com, but by something weak: digest sha1\n"));
  EXPECT_THAT(mailtree("show " + known).out, HasSubstr("signature valid, weak: digest sha1"));
}

TEST(Verify, names_the_signer_who_was_found_good_and_counts_the_others) {
  if (shell("openssl version").status != 0) GTEST_SKIP() << "there is no openssl command";
  const Workspace work;
  const std::string content = work.write("content", "Content-Type: text/plain\r\n\r\nx\r\n");
  const auto signer = [](const std::string& name) {
    return " -signer " + identity(name + ".pem") + " -inkey " + identity(name + ".key");
  };
  const std::string both = signer("impostor") + signer("bob");
  const struct {
    const char *from, *line, *verdict;
  } rows[] = {
      {"bob", "signature valid, but 1 other signer is not good; signer bob@example.com\n", "\nvalid: "},
      {"alice", "signature valid, signer not trusted; signer alice@example.com\n", "\nNOT valid: "}};
  for (const auto& row : rows) {
    const Result made =
        shell("openssl cms -sign -in " + content + both + " -certfile " + identity("intermediate.pem") +
              " -from " + row.from + "@example.com > " + work.path("m"));
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_THAT(mailtree("show " + work.path("m") + trusted()).out, HasSubstr(row.line)) << row.from;
    EXPECT_THAT(mailtree("verify " + work.path("m") + trusted()).out, HasSubstr(row.verdict)) << row.from;
  }
}

TEST(Verify, names_everything_it_looked_at) {
  const Workspace work;
  const std::string file = signedMail(work, kLetter, as("alice") + " --pss");
  const std::string out = mailtree("verify " + file + trusted()).out;
  for (const char* line :
       {"layer 1: detached-signature\n", "  ok  covers     all of the content\n", "ok  digest     sha256, ",
        "ok  signature  rsa-pss, RSA 2048 bits, verified\n", "ok  chain      trusted\n",
        "ok  address    alice@example.com, as in From\n", "      time       20"})
    EXPECT_THAT(out, HasSubstr(line)) << out;
  const auto security = shown(file + trusted())["security"];
  EXPECT_EQ(security["signed_layers"], 1);
  EXPECT_EQ(security["signatures_valid"], true);
  EXPECT_EQ(security["received_encrypted"], false);
  EXPECT_EQ(security["signers"][0]["addresses"][0], "alice@example.com");
  EXPECT_EQ(security["layers"][0]["signers"][0]["algorithm"], "rsa-pss");
}

TEST(Verify, real_messages_are_valid_or_not_as_they_should_be) {
  const std::string messages = places::corpus("messages");
  if (messages.empty()) GTEST_SKIP() << "MAILTREE_CORPUS names no folder with messages";
  int signedRight = 0, valid = 0;
  for (const auto& entry : std::filesystem::directory_iterator(messages)) {
    const std::string name = entry.path().filename();
    if (name.find("smime") == std::string::npos) continue;
    const auto security = shown("'" + entry.path().string() + "'")["security"];
    const bool isBad = name.find("-bad") != std::string::npos || name.find("mismatch") != std::string::npos;
    EXPECT_FALSE(isBad && security["signatures_valid"]) << name;
    signedRight += !isBad && security["signed_layers"] > 0;
    valid += security["signatures_valid"] == true;
  }
  EXPECT_GE(2 * valid, signedRight) << "most of what arrives signed is valid";
}

}  // namespace
}  // namespace mailtree::cli_test
