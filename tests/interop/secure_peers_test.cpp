// Secure mail in both directions with other programs: what they make is read here, and what is made here they
// read. Each skips where its program is absent.
#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::interop {
namespace {

using cli_test::readFile;
using cli_test::Result;
using cli_test::shell;

std::string identity(const std::string& file) { return places::testData() + "/secure/" + file; }

/// The options for somebody's certificate and key, and the authority between it and the root.
std::string as(const std::string& name) {
  return " --cert " + identity(name + ".pem") + " --key " + identity(name + ".key") + " --cert " +
         identity("intermediate.pem") + " ";
}

std::string trusted() { return " --trust " + identity("root.pem") + " "; }

/// Who signs or reads, and how: options of the one that writes.
struct How {
  std::string who, options;
};

// Each with as many properties as can be had at once: every pair of them that matters occurs. The first two
// of a list are tried with other bodies too.
const std::vector<How> kSignings = {{"alice", ""},
                                    {"alice", "--opaque --digest sha384"},
                                    {"alice", "--pss"},
                                    {"bob", "--digest sha512 --pss --opaque"},
                                    {"carol", ""},
                                    {"carol", "--opaque --digest sha512"},
                                    {"dave", "--digest sha384"}};
const std::vector<How> kSealings = {{"alice", "aes-128-cbc"},     {"alice carol", "aes-256-gcm"},
                                    {"alice bob", "aes-256-cbc"}, {"alice bob carol dave", "aes-256-cbc"},
                                    {"bob", "aes-128-gcm"},       {"bob alice", "aes-256-cbc --oaep"},
                                    {"dave", "aes-256-gcm"},      {"alice", "3des"}};

/// Lines of shell, run in a folder of the peer's own. They find the identities in $id, who signs or reads in
/// $who and the options in $how, and read the file "entity"; or "message", which is "content" (if any) and
/// "der" too. They write "made", or "open".
struct Peer {
  const char *name, *isThere, *setUp, *sign, *verify, *seal, *open;
  std::vector<How> signings, sealings;
  bool writesMessages, isModern;
};

const char* const kMakeFiles =
    "for who in alice bob carol dave; do openssl pkcs12 -export -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES "
    "-macalg sha1 -in $id/$who.pem -inkey $id/$who.key -certfile $id/chain.pem -name $who -passout "
    "pass:secret "
    "-out $who.p12; done; ";

const Peer kPeers[] = {
    {"openssl",
     "openssl version | grep -q '^OpenSSL 3'",
     "true",
     "openssl cms -sign -crlfeol -from $who@example.com -in entity -signer $id/$who.pem -inkey $id/$who.key "
     "-certfile $id/intermediate.pem $how -out made",
     "openssl cms -verify -purpose smimesign -in message -CAfile $id/root.pem -out /dev/null",
     "for each in $who; do to=\"$to -recip $id/$each.pem $oaep\"; done; "
     "openssl cms -encrypt -binary -from alice@example.com $how -in entity -out made $to",
     "openssl cms -decrypt -binary -in message -recip $id/$who.pem -inkey $id/$who.key -out open",
     {{"alice", "-md sha256"},
      {"alice", "-nodetach -md sha384"},
      {"alice", "-md sha256 -keyopt rsa_padding_mode:pss"},
      {"bob", "-nodetach -md sha512 -keyopt rsa_padding_mode:pss"},
      {"carol", "-md sha256"},
      {"carol", "-nodetach -md sha512"},
      {"dave", "-md sha384"}},
     {{"alice", "-aes128"},
      {"alice carol", "-aes-256-gcm"},
      {"alice bob carol dave", "-aes256"},
      {"bob alice", "-aes256' oaep='-keyopt rsa_padding_mode:oaep -keyopt rsa_oaep_md:sha256"},
      {"dave", "-aes-128-gcm"},
      {"alice", "-des3"}},
     true,
     true},
    {"gpgsm",
     "gpgsm --version && openssl version",
     "printf 'disable-crl-checks\\nbatch\\npinentry-mode loopback\\nno-secmem-warning\\n' > gpgsm.conf; "
     "echo allow-loopback-pinentry > gpg-agent.conf; echo secret > pw; chmod 700 .; "
     "openssl x509 -noout -fingerprint -sha1 -in $id/root.pem | sed 's/.*=//; s/$/ S relax/' > "
     "trustlist.txt; "
     "gpgsm --import $id/root.pem $id/intermediate.pem; "
     // Its agent may be slow to start. It crashes over elliptic keys.
     "has() { gpgsm --list-secret-keys $1@example.com | grep -q @; }; "
     "for who in alice bob; do for try in 1 2 3; do gpgsm --passphrase-fd 0 --import $who.p12 < pw; "
     "has $who && break; sleep 1; done; done; has alice && has bob",
     "gpgsm --passphrase-fd 0 --yes --digest-algo SHA256 --local-user $who@example.com --detach-sign -o made "
     "entity < pw",
     "gpgsm --verify der $content",
     "gpgsm --yes --cipher-algo AES256 -r $who@example.com --encrypt -o made entity",
     "gpgsm --passphrase-fd 0 --yes --decrypt -o open der < pw",
     {{"alice", ""}, {"bob", ""}},
     {{"alice", ""}, {"bob", ""}},
     false,
     false},
    {"nss",
     "command -v cmsutil certutil pk12util openssl",
     "certutil -N -d sql:. --empty-password; certutil -A -d sql:. -n root -t CT,CT,CT -a -i $id/root.pem; "
     "certutil -A -d sql:. -n issuer -t ,, -a -i $id/intermediate.pem; "
     "for who in alice bob carol dave; do pk12util -d sql:. -K '' -W secret -i $who.p12; done",
     "cmsutil -S -T -G -d sql:. -N $who -i entity -o made",
     "cmsutil -D -d sql:. -n -i der ${content:+-c content}",
     "cmsutil -E -d sql:. -r $who -i entity -o made",
     "cmsutil -D -d sql:. -i der -o open",
     {{"alice", ""}, {"carol", ""}},
     {{"alice", ""}, {"bob", ""}},
     false,
     false},
};

constexpr const char* kEntity = "Content-Type: text/plain; charset=utf-8\r\n\r\n";

/// Bodies to try with one of a list: all with the first, and all but the large one with the second.
std::vector<std::string> bodiesFor(const std::vector<How>& list, const How& how) {
  std::vector<std::string> bodies = {"Shall we?\r\n"};
  if (&how - list.data() < 2)
    bodies.insert(bodies.end(), {"", "x", "a\nb\n", "a  \r\nb\t \r\n\r\n", "a\r\nb"});
  if (&how != list.data()) return bodies;
  std::string& large = bodies.emplace_back();
  while (large.size() < 8'000'000)
    large += "The quick brown fox, line " + std::to_string(large.size()) + "\r\n";
  return bodies;
}

std::string mailOf(const std::string& from, const std::string& body) {
  return "From: " + from + "@example.com\r\nTo: bob@example.com\r\nSubject: x\r\nMIME-Version: 1.0\r\n" +
         kEntity + body;
}

std::string base64Part(const std::string& type, const std::string& der) {
  StringBuffer text;
  ContentCoding::encodeBase64(der.data(), der.size(), text);
  return "Content-Type: application/" + type + "\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
         text.extractString();
}

class SecurePeer : public testing::TestWithParam<Peer> {
 protected:
  void SetUp() override {
    if (shell(m_peer.isThere).status != 0) GTEST_SKIP() << "there is no " << m_peer.name;
    const Result result = run(std::string(m_peer.writesMessages ? "" : kMakeFiles) + m_peer.setUp, {});
    if (result.status != 0) GTEST_SKIP() << m_peer.name << " does not take the keys: " << result.err;
  }
  void TearDown() override { run("gpgconf --kill gpg-agent", {}); }

  Result run(const std::string& line, const How& how) const {
    return shell("cd " + m_work.folder().string() + "; export GNUPGHOME=\"$PWD\"; id=" + identity("") +
                 "; who='" + how.who + "' how='" + how.options + "'; test -s content && content=content; " +
                 line);
  }
  void runWell(const std::string& line, const How& how) const {
    const Result result = run(line, how);
    EXPECT_EQ(result.status, 0) << line << '\n' << result.err;
  }
  /// Runs this program, which writes "message"; its layer is then in "der", what a detached
  /// one is over in "content".
  void make(const std::string& arguments) const {
    const Result made = cli_test::mailtree(arguments + " --force -o " + m_work.path("message"));
    EXPECT_EQ(made.status, 0) << arguments << '\n' << made.err;
    const std::string bytes = read("message");
    MimeMessage2 message;
    LogNull log;
    message.loadText(bytes, log);
    const bool isDetached = message.getNumParts() > 1;
    const auto content = isDetached ? message.getPart(0)->extractReceivedBytes() : nullptr;
    MimeMessage2& layer = isDetached ? *message.getPart(1) : message;
    m_work.write("content", content ? std::string(content->view()) : "");
    m_work.write("der", std::string(layer.getMimeBodyDb()->view()));
  }
  /// The message that the peer made, or one around the bytes that it made.
  std::string made(const std::string& from, const std::string& header, const std::string& end) const {
    if (m_peer.writesMessages) return m_work.path("made");
    return m_work.write("m", "From: " + from + "@example.com\r\nMIME-Version: 1.0\r\n" + header + end);
  }
  std::string read(const char* name) const { return readFile(m_work.path(name)); }

  const Peer& m_peer = GetParam();
  cli_test::Workspace m_work;
};

TEST_P(SecurePeer, verifies_what_is_signed_here) {
  for (const How& how : kSignings)
    for (const std::string& body : bodiesFor(kSignings, how)) {
      make("sign " + m_work.write("mail", mailOf(how.who, body)) + as(how.who) + how.options);
      runWell(m_peer.verify, how);
    }
}

TEST_P(SecurePeer, signs_what_verifies_here) {
  for (const How& how : m_peer.signings)
    for (const std::string& body : bodiesFor(m_peer.signings, how)) {
      m_work.write("entity", kEntity + body);
      runWell(m_peer.sign, how);
      const std::string file =
          made(how.who,
               "Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\"; "
               "micalg=sha-256; boundary=peer\r\n\r\n--peer\r\n" +
                   (kEntity + body) + "\r\n--peer\r\n",
               base64Part("pkcs7-signature", read("made")) + "\r\n--peer--\r\n");
      const Result result =
          cli_test::mailtree("verify " + file + trusted() + "--cert " + identity("intermediate.pem"));
      EXPECT_EQ(result.status, 0) << how.who << how.options << '\n' << result.out << result.err;
    }
}

TEST_P(SecurePeer, opens_what_is_encrypted_here) {
  for (const How& how : kSealings) {
    // The old ones know neither AuthEnvelopedData nor OAEP, and nothing for elliptic keys.
    const std::string all = how.who + how.options;
    if (!m_peer.isModern && (contains(all, "gcm") || contains(all, "oaep") || contains(all, "carol")))
      continue;
    std::istringstream readers(how.who);
    std::string certificates;
    std::vector<std::string> each(std::istream_iterator<std::string>(readers), {});
    for (const std::string& name : each) certificates += " --cert " + identity(name + ".pem");
    for (const std::string& body : bodiesFor(kSealings, how)) {
      const std::string mail = mailOf("alice", body == "a\nb\n" ? "a\r\nb\r\n" : body);
      make("encrypt " + m_work.write("mail", mail) + certificates + " --cipher " + how.options);
      for (const std::string& reader : each) {
        runWell(m_peer.open, {reader, ""});
        EXPECT_TRUE(read("open") == mail) << how.options << ' ' << reader;
      }
    }
  }
}

TEST_P(SecurePeer, encrypts_what_opens_here) {
  for (const How& how : m_peer.sealings)
    for (const std::string& body : bodiesFor(m_peer.sealings, how)) {
      m_work.write("entity", kEntity + body);
      runWell(m_peer.seal, how);
      const std::string file = made(
          "alice", "", base64Part("pkcs7-mime; smime-type=enveloped-data; name=smime.p7m", read("made")));
      std::istringstream readers(how.who);
      for (std::string reader; readers >> reader;) {
        const Result opened =
            cli_test::mailtree("decrypt " + file + as(reader) + "--force -o " + m_work.path("open"));
        EXPECT_EQ(opened.status, 0) << how.options << ' ' << reader << '\n' << opened.err;
        EXPECT_TRUE(read("open").ends_with("\r\n" + (kEntity + body))) << how.options << ' ' << reader;
      }
    }
}

TEST_P(SecurePeer, puts_on_layers_in_any_order_that_are_taken_off_here) {
  if (!m_peer.writesMessages) GTEST_SKIP() << "it writes no messages";
  for (const std::string order : {"sign seal", "seal sign", "sign seal sign"}) {
    m_work.write("entity", kEntity + std::string("Shall we?\r\n"));
    std::istringstream steps(order);
    for (std::string step; steps >> step;)
      runWell((step == "sign" ? m_peer.sign : m_peer.seal) + std::string("; mv made entity"),
              step == "sign" ? How{"alice", ""} : How{"bob", "-crlfeol -aes256"});
    const std::string file = m_work.path("entity") + as("bob");
    EXPECT_EQ(cli_test::mailtree("body " + file).out, "Shall we?\n") << order;
    EXPECT_EQ(cli_test::mailtree("verify " + file + trusted()).status, 0) << order;
  }
}

INSTANTIATE_TEST_SUITE_P(Interop, SecurePeer, testing::ValuesIn(kPeers),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace mailtree::interop
