// What other programs make of what the command writes, and it of what they write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

bool works(const std::string& program) { return shell(program + " > /dev/null").status == 0; }

/// A program line that reads XML from standard input and fails when it is not well formed;
/// empty when there is none.
std::string xmlParser() {
  if (works("xmllint --version")) return "xmllint --noout -";
  const std::string python = "python3 -c 'import sys, xml.dom.minidom as d; d.parse(sys.stdin.buffer)'";
  return works("echo '<a/>' | " + python) ? python : "";
}

TEST(XmlParser, accepts_every_sample_in_both_forms) {
  const std::string parser = xmlParser();
  if (parser.empty()) GTEST_SKIP() << "there is neither xmllint nor python3";
  ASSERT_FALSE(works("echo '<a>&</a>' | " + parser));
  const Workspace work;
  const std::string hostile = work.write(
      "hostile",
      std::string("Subject: \x01 ]]> \xFF <&>\r\nX<>: 1\r\n-: 2\r\n\r\n]]> \0 \x1B \xEF\xBF\xBF\r\n", 52));
  const Result result = shell("for f in " + hostile + ' ' + places::samples() +
                              "/*; do for form in '' --indent; do \"$mailtree\" xml $form \"$f\" | " +
                              parser + " || echo \"$f\" $form; done; done");
  EXPECT_EQ(result.out, "") << result.err;
}

TEST(XmlParser, gives_back_the_exact_text) {
  if (!works("python3 -c 'import xml.etree.ElementTree'")) GTEST_SKIP() << "there is no python3";
  const Workspace work;
  const std::string body = "one\r\n\r\n]]> <&>\n\ttwo\rthree\r\n";
  const Result result =
      shell("\"$mailtree\" xml " + work.write("m", "Subject: =?utf-8?Q?=C3=A4?=  b\r\n\r\n" + body) +
            " | python3 -c 'import sys, xml.etree.ElementTree as e; r = e.parse(sys.stdin.buffer).getroot();"
            "sys.stdout.buffer.write((r.find(\"subject\").text + \"|\" + r.find(\"body\").text).encode())'");
  EXPECT_EQ(result.out, "ä  b|" + body) << result.err;
}

std::string chromium() {
  if (!works("python3 -c 'import subprocess'")) return "";
  for (const char* name : {"chromium", "chromium-browser", "google-chrome"})
    if (works(std::string("command -v ") + name)) return name;
  return "";
}

TEST(Browser, shows_the_page_and_images_of_a_web_archive) {
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "Chromium or python3 is not installed";
  const Workspace work;
  const auto see = [&](const std::string& file) {
    EXPECT_EQ(mailtree("mht " + file + " -o " + work.path("p.mht")).status, 0) << file;
    const Result seen = shell("timeout 60 python3 '" + places::sourceFolder() +
                              "/tests/cli/see_in_chromium.py' " + browser + " " + work.path("p.mht"));
    return seen.status == 0 ? json::parse(seen.out) : json(seen.err);
  };
  const json newsletter = see(sample("newsletter"));
  EXPECT_EQ(newsletter["title"], "Grünkohl & Freunde") << newsletter;
  EXPECT_EQ(newsletter["images"], json::parse("[[48, 24]]")) << newsletter;

  std::string page =
      "Content-Type: multipart/related; boundary=r\n\n--r\nContent-Type: text/html; charset=iso-8859-1\n\n"
      "<title>t</title><body>\xE4<img src='a/ein bild.gif'><img src='http://o.example/b.gif'>"
      "<img src='/c.gif'><img src='cid:d@x'></body>";
  for (const char* fields : {"Content-Location: a/ein bild.gif", "Content-Location: http://o.example/b.gif",
                             "Content-Location: /c.gif\nContent-Disposition: attachment; filename=c.gif",
                             "Content-ID: <d@x>\nContent-Location: d.gif"})
    page.append("\n--r\n").append(fields) +=
        "\nContent-Type: image/gif\nContent-Transfer-Encoding: base64\n\n"  // 3 x 2 pixels
        "R0lGODlhAwACAIAAAAAAAP///yH5BAAAAAAALAAAAAADAAIAAAIDhI8FADs=";
  const json located = see(work.write("m", page + "\n--r--\n"));
  EXPECT_EQ(located["images"], json::parse("[[3, 2], [3, 2], [3, 2], [3, 2]]")) << located;
  EXPECT_EQ(located["text"], "ä") << located;

  const json text = see(work.write("t", "Subject: a<b\r\n\r\n1 <b>2</b>\r\n"));
  EXPECT_EQ(text["title"], "a<b") << text;
  EXPECT_THAT(text["text"].get<std::string>(), HasSubstr("1 <b>2</b>"));
}

std::string identity(const std::string& file) { return ' ' + places::testData() + "/secure/" + file; }

class Openssl : public testing::Test {
 protected:
  void SetUp() override {
    if (!works("openssl version")) GTEST_SKIP() << "there is no openssl command";
  }

  /// Makes a message "m" of a content.
  std::string make(const std::string& content, const std::string& options) const {
    const Result made =
        shell("openssl cms -in " + m_work.write("content", content) + options + " > " + m_work.path("m"));
    EXPECT_EQ(made.status, 0) << made.err;
    return m_work.path("m");
  }

  static constexpr const char* kContent = "Content-Type: text/plain\r\n\r\nx\r\n";
  const std::string m_trust = " --trust" + identity("root.pem");
  const Workspace m_work;
};

TEST_F(Openssl, encrypts_contents_that_are_no_messages_and_become_texts) {
  for (const std::string text : {"just text\r\n", "Subject: other\r\n\r\nend\r\n", "Note: x\r\nmore\r\n"})
    EXPECT_EQ(
        mailtree("decrypt " +
                 make(text, " -encrypt -binary -aes256 -subject Hi -outform SMIME" + identity("bob.pem")) +
                 " --cert" + identity("bob.pem") + " --key" + identity("bob.key"))
            .out,
        "Subject: Hi\r\nMIME-Version: 1.0\r\nContent-Type: text/plain\r\n\r\n" + text);
}

TEST_F(Openssl, signs_without_a_certificate_and_by_a_weak_digest_which_is_said) {
  const std::string file = make(kContent, " -sign -nocerts -md sha1 -from alice@example.com -signer" +
                                              identity("alice.pem") + " -inkey" + identity("alice.key")) +
                           m_trust + " --cert" + identity("intermediate.pem");
  const std::string none = "not checked: no certificate of the signer", out = mailtree("verify " + file).out;
  for (const std::string& line :
       {std::string("ok  digest     sha1, the content is what was signed\n"), "?   signature  " + none,
        "?   chain      " + none, "NOT valid: the signature was " + none + "\n"})
    EXPECT_THAT(out, HasSubstr(line));
  EXPECT_THAT(mailtree("show " + file).out, HasSubstr("signature " + none));
  const json signer = json::parse(mailtree("show --json " + file).out)["security"]["layers"][0]["signers"][0];
  EXPECT_EQ(signer["digest_matched"], true);
  for (const char* name :
       {"certificate", "signature_verified", "chain_trusted", "revoked", "address_matches"})
    EXPECT_TRUE(signer[name].is_null()) << name;
  EXPECT_EQ(signer["weaknesses"], json({"digest sha1"}));

  const std::string known = file + " --cert" + identity("alice.pem");
  EXPECT_THAT(mailtree("verify " + known).out,
              HasSubstr("alice@example.com, but with something weak: digest sha1\n"));
  EXPECT_THAT(mailtree("show " + known).out, HasSubstr("signature valid, weak: digest sha1"));
}

TEST_F(Openssl, signs_for_two_of_whom_the_good_one_is_named_and_the_other_counted) {
  std::string both = " -sign -certfile" + identity("intermediate.pem");
  for (const std::string name : {"impostor", "bob"})
    both += " -signer" + identity(name + ".pem") + " -inkey" + identity(name + ".key");
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"bob", "signature valid, but 1 other signer is not accepted; signer\n         bob@example.com\n",
       "\nvalid: "},
      {"alice", "signature valid, signer not trusted; signer alice@example.com\n", "\nNOT valid: "}};
  for (const auto& [from, line, verdict] : rows) {
    const std::string file = make(kContent, both + " -from " + from + "@example.com") + m_trust;
    EXPECT_THAT(mailtree("show " + file).out, HasSubstr(line)) << from;
    EXPECT_THAT(mailtree("verify " + file).out, HasSubstr(verdict)) << from;
  }
}

TEST(RealMessages, are_valid_or_not_as_they_should_be) {
  const std::string messages = places::corpus("messages");
  if (messages.empty()) GTEST_SKIP() << "MAILTREE_CORPUS names no folder with messages";
  int signedRight = 0, valid = 0;
  for (const auto& entry : std::filesystem::directory_iterator(messages)) {
    const std::string name = entry.path().filename();
    if (name.find("smime") == std::string::npos) continue;
    const json security =
        json::parse(mailtree("show --json '" + entry.path().string() + "'").out)["security"];
    const bool isBad = name.find("-bad") != std::string::npos || name.find("mismatch") != std::string::npos;
    EXPECT_FALSE(isBad && security["signatures_valid"]) << name;
    signedRight += !isBad && security["signed_layers"] > 0;
    valid += security["signatures_valid"] == true;
  }
  EXPECT_GE(2 * valid, signedRight) << "most of what arrives signed is valid";
}

}  // namespace
}  // namespace mailtree::cli_test
