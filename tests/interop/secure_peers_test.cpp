// Secure mail in both directions with other programs: what they make is read here, and what is made here they read.
// Every pair skips where its program is absent.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/cli/identities.h"

namespace mailtree::interop {
namespace {

using cli_test::as;
using cli_test::identity;
using cli_test::readFile;
using cli_test::Result;
using cli_test::shell;
using cli_test::trusted;
using cli_test::Workspace;

/// A signature or envelope, and what a detached one is over, as they stand in a message.
struct Layer {
  std::string der, content;
};

Layer layerOf(const std::string& file) {
  const std::string bytes = readFile(file);
  MimeMessage2 message;
  LogNull log;
  message.loadText(bytes, log);
  if (message.getNumParts() < 2) return {std::string(message.getMimeBodyDb()->view()), {}};
  const std::unique_ptr<DataBuffer> content = message.getPart(0)->extractReceivedBytes();
  return {std::string(message.getPart(1)->getMimeBodyDb()->view()), std::string(content->view())};
}

std::string base64Of(const std::string& bytes) {
  StringBuffer text;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  return std::string(text.view());
}

std::string opaqueMessage(const std::string& from, const std::string& der, const char* smimeType) {
  return "From: " + from +
         "@example.com\r\nMIME-Version: 1.0\r\nContent-Type: application/pkcs7-mime; smime-type=" +
         smimeType + "; name=smime.p7m\r\nContent-Transfer-Encoding: base64\r\n\r\n" + base64Of(der);
}

std::string detachedMessage(const std::string& from, const std::string& content, const std::string& der) {
  return "From: " + from +
         "@example.com\r\nMIME-Version: 1.0\r\nContent-Type: multipart/signed; "
         "protocol=\"application/pkcs7-signature\"; "
         "micalg=sha-256; boundary=peer\r\n\r\n--peer\r\n" +
         content +
         "\r\n--peer\r\nContent-Type: application/pkcs7-signature\r\nContent-Transfer-Encoding: "
         "base64\r\n\r\n" +
         base64Of(der) + "\r\n--peer--\r\n";
}

constexpr const char* kEntity = "Content-Type: text/plain; charset=utf-8\r\n\r\n";

struct Body {
  const char* name;
  std::string text;
};

const std::vector<Body>& bodies() {
  static const std::vector<Body> all = [] {
    std::string large;
    while (large.size() < 8'000'000)
      large += "The quick brown fox, line " + std::to_string(large.size()) + "\r\n";
    return std::vector<Body>{{"usual", "Shall we?\r\n"},
                             {"0 bytes", ""},
                             {"1 byte", "x"},
                             {"8 MB", large},
                             {"bare LF", "a\nb\n"},
                             {"trailing blanks", "a  \r\nb\t \r\n\r\n"},
                             {"no final line break", "a\r\nb"}};
  }();
  return all;
}

std::string mailOf(const std::string& from, const std::string& body) {
  return "From: " + from + "@example.com\r\nTo: bob@example.com\r\nSubject: x\r\nMIME-Version: 1.0\r\n" +
         kEntity + body;
}

/// Each with as many properties as can be had at once: every pair of them that matters occurs.
struct Signing {
  const char *signer, *ours, *openssl;
};
constexpr Signing kSignings[] = {
    {"alice", "", "-md sha256"},
    {"alice", "--opaque --digest sha384", "-nodetach -md sha384"},
    {"alice", "--pss", "-md sha256 -keyopt rsa_padding_mode:pss"},
    {"bob", "--digest sha512 --pss --opaque", "-nodetach -md sha512 -keyopt rsa_padding_mode:pss"},
    {"carol", "", "-md sha256"},
    {"carol", "--opaque --digest sha512", "-nodetach -md sha512"},
    {"dave", "--digest sha384", "-md sha384"},
};

struct Sealing {
  const char *ours, *openssl;
  std::vector<std::string> readers;
};
const std::vector<Sealing>& sealings() {
  static const std::vector<Sealing> all = {
      {"aes-128-cbc", "-aes128", {"alice"}},
      {"aes-256-cbc", "-aes256", {"alice", "bob", "carol", "dave"}},
      {"aes-256-cbc", "-aes256", {"alice", "bob"}},
      {"aes-128-gcm", "-aes-128-gcm", {"bob"}},
      {"aes-256-gcm", "-aes-256-gcm", {"alice", "carol"}},
      {"aes-256-cbc --oaep", "-aes256", {"bob", "alice"}},
      {"aes-256-gcm", "-aes-256-gcm", {"dave"}},
      {"3des", "-des3", {"alice"}},
  };
  return all;
}

bool isForRsa(const Sealing& how) {
  return std::ranges::all_of(how.readers, [](const auto& name) { return name == "alice" || name == "bob"; });
}

std::string certOf(const std::string& name) { return identity(name + ".pem"); }
std::string keyOf(const std::string& name) { return identity(name + ".key"); }

std::string sign(const Workspace& work, const Signing& how, const std::string& mail) {
  const std::string out = work.path("signed");
  const Result made =
      cli_test::mailtree("sign " + work.write("mail", mail) + as(how.signer) + how.ours + " -o " + out);
  EXPECT_EQ(made.status, 0) << how.signer << ' ' << how.ours << '\n' << made.err;
  return out;
}

std::string seal(const Workspace& work, const Sealing& how, const std::string& mail) {
  std::string to;
  for (const std::string& name : how.readers) to += " --cert " + certOf(name);
  const std::string out = work.path("sealed");
  const Result made =
      cli_test::mailtree("encrypt " + work.write("mail", mail) + to + " --cipher " + how.ours + " -o " + out);
  EXPECT_EQ(made.status, 0) << how.ours << '\n' << made.err;
  return out;
}

void expectValid(const std::string& file, const std::string& what) {
  const Result result = cli_test::mailtree("verify " + file + trusted() + "--cert " + certOf("intermediate"));
  EXPECT_EQ(result.status, 0) << what << '\n' << result.out << result.err;
}

bool hasOpenssl() { return shell("openssl version | grep -q '^OpenSSL 3'").status == 0; }

TEST(SecurePeers, openssl_verifies_what_is_signed_here) {
  if (!hasOpenssl()) GTEST_SKIP() << "there is no openssl 3";
  const Workspace work;
  for (const Signing& how : kSignings) {
    for (const Body& body : bodies()) {
      if (&body != &bodies().front() && how.signer != std::string("alice")) continue;
      const std::string file = sign(work, how, mailOf(how.signer, body.text));
      const Result result = shell("openssl cms -verify -purpose smimesign -in " + file + " -CAfile " +
                                  certOf("root") + " -out /dev/null");
      EXPECT_EQ(result.status, 0) << how.signer << ' ' << how.ours << ", " << body.name << '\n' << result.err;
    }
  }
}

TEST(SecurePeers, what_openssl_signs_verifies_here) {
  if (!hasOpenssl()) GTEST_SKIP() << "there is no openssl 3";
  const Workspace work;
  for (const Signing& how : kSignings) {
    for (const Body& body : bodies()) {
      if (&body != &bodies().front() && how.signer != std::string("alice")) continue;
      const Result made =
          shell("openssl cms -sign -crlfeol -from " + std::string(how.signer) + "@example.com -in " +
                work.write("entity", kEntity + body.text) + " -signer " + certOf(how.signer) + " -inkey " +
                keyOf(how.signer) + " -certfile " + certOf("intermediate") + ' ' + how.openssl + " -out " +
                work.path("m"));
      ASSERT_EQ(made.status, 0) << how.openssl << '\n' << made.err;
      expectValid(work.path("m"), std::string(how.signer) + ' ' + how.openssl + ", " + body.name);
    }
  }
}

TEST(SecurePeers, openssl_opens_what_is_encrypted_here) {
  if (!hasOpenssl()) GTEST_SKIP() << "there is no openssl 3";
  const Workspace work;
  for (const Sealing& how : sealings()) {
    for (const Body& body : bodies()) {
      if (&body != &bodies().front() && how.readers.size() > 1) continue;
      const std::string mail =
          mailOf("alice", body.name == std::string("bare LF") ? "a\r\nb\r\n" : body.text);
      const std::string file = seal(work, how, mail);
      for (const std::string& reader : how.readers) {
        const Result result = shell("openssl cms -decrypt -binary -in " + file + " -recip " + certOf(reader) +
                                    " -inkey " + keyOf(reader) + " -out " + work.path("open"));
        EXPECT_EQ(result.status, 0) << how.ours << ' ' << reader << ", " << body.name << '\n' << result.err;
        EXPECT_TRUE(readFile(work.path("open")) == mail) << how.ours << ' ' << reader << ", " << body.name;
      }
    }
  }
}

TEST(SecurePeers, what_openssl_encrypts_opens_here) {
  if (!hasOpenssl()) GTEST_SKIP() << "there is no openssl 3";
  const Workspace work;
  for (const Sealing& how : sealings()) {
    std::string to;
    for (const std::string& name : how.readers)
      to += " -recip " + certOf(name) +
            (std::string(how.ours).ends_with("--oaep")
                 ? " -keyopt rsa_padding_mode:oaep -keyopt rsa_oaep_md:sha256"
                 : "");
    for (const Body& body : bodies()) {
      const Result made = shell("openssl cms -encrypt -binary " + std::string(how.openssl) + " -in " +
                                work.write("entity", kEntity + body.text) + " -out " + work.path("m") + to);
      ASSERT_EQ(made.status, 0) << how.openssl << '\n' << made.err;
      for (const std::string& reader : how.readers) {
        const Result opened =
            cli_test::mailtree("decrypt " + work.path("m") + as(reader) + "-o " + work.path("open"));
        EXPECT_EQ(opened.status, 0) << how.openssl << ' ' << reader << ", " << body.name << '\n'
                                    << opened.err;
        EXPECT_TRUE(readFile(work.path("open")).ends_with("\r\n" + std::string(kEntity) + body.text))
            << how.openssl << ' ' << reader << ", " << body.name;
        if (&body != &bodies().front()) break;
      }
    }
  }
}

TEST(SecurePeers, layers_of_openssl_in_any_order_are_taken_off) {
  if (!hasOpenssl()) GTEST_SKIP() << "there is no openssl 3";
  const Workspace work;
  const std::string sign = "openssl cms -sign -crlfeol -from alice@example.com -signer " + certOf("alice") +
                           " -inkey " + keyOf("alice") + " -certfile " + certOf("intermediate") + " -in ";
  const std::string seal = "openssl cms -encrypt -binary -crlfeol -from alice@example.com -aes256 -recip " +
                           certOf("bob") + " -in ";
  const std::vector<std::vector<std::string>> orders = {{sign, seal}, {seal, sign}, {sign, seal, sign}};
  for (const auto& order : orders) {
    std::string file = work.write("0", std::string(kEntity) + "Shall we?\r\n");
    for (const std::string& step : order) {
      const std::string next = file + "x";
      const Result made = shell(step + file + " -out " + next);
      ASSERT_EQ(made.status, 0) << made.err;
      file = next;
    }
    EXPECT_EQ(cli_test::mailtree("body " + file + as("bob")).out, "Shall we?\r\n") << order.size();
    EXPECT_EQ(cli_test::mailtree("verify " + file + as("bob") + trusted()).status, 0) << order.size();
  }
}

/// A home of its own for the keys of a peer, with everybody in it.
class Peer {
 public:
  Peer() {
    for (const char* name : {"alice", "bob", "carol", "dave"})
      run("openssl pkcs12 -export -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1 -in " +
          certOf(name) + " -inkey " + keyOf(name) + " -certfile " + identity("chain.pem") + " -name " + name +
          " -passout pass:secret -out " + path(std::string(name) + ".p12"));
  }
  Result run(const std::string& line) const { return shell("cd " + m_work.folder().string() + "; " + line); }
  std::string path(const std::string& name) const { return m_work.path(name); }
  std::string write(const std::string& name, const std::string& bytes) const {
    return m_work.write(name, bytes);
  }
  const Workspace& work() const { return m_work; }

 protected:
  Workspace m_work;
};

class Gpgsm : public Peer {
 public:
  Gpgsm() {
    write("gpgsm.conf", "disable-crl-checks\nbatch\npinentry-mode loopback\nno-secmem-warning\n");
    write("gpg-agent.conf", "allow-loopback-pinentry\n");
    std::string root = run("openssl x509 -noout -fingerprint -sha1 -in " + certOf("root")).out;
    root = root.substr(root.find('=') + 1);
    write("trustlist.txt", root.substr(0, root.find('\n')) + " S relax\n");
    gpgsm("--import " + certOf("root") + ' ' + certOf("intermediate"));
    for (const char* name : {"alice", "bob"})  // it crashes over elliptic keys
      gpgsm("--passphrase-fd 0 --import " + std::string(name) + ".p12 < pw");
  }
  ~Gpgsm() { run("GNUPGHOME=. gpgconf --kill gpg-agent"); }

  Result gpgsm(const std::string& arguments) const {
    write("pw", "secret\n");
    return run("chmod 700 .; GNUPGHOME=\"$PWD\" gpgsm " + arguments);
  }
};

TEST(SecurePeers, gpgsm_and_this_read_each_other) {
  if (shell("gpgsm --version").status != 0 || !hasOpenssl()) GTEST_SKIP() << "there is no gpgsm";
  const Gpgsm peer;
  for (const Signing& how : kSignings) {
    const Layer layer = layerOf(sign(peer.work(), how, mailOf(how.signer, "Shall we?\r\n")));
    peer.write("sig", layer.der);
    peer.write("content", layer.content);
    const Result result = peer.gpgsm(layer.content.empty() ? "--verify sig" : "--verify sig content");
    EXPECT_EQ(result.status, 0) << how.signer << ' ' << how.ours << '\n' << result.err;
  }
  for (const Body& body : bodies()) {
    peer.write("entity", kEntity + body.text);
    for (const char* const signer : {"alice", "bob"}) {
      const Result made = peer.gpgsm("--passphrase-fd 0 --yes --digest-algo SHA256 --local-user " +
                                     std::string(signer) + "@example.com --detach-sign -o sig entity < pw");
      ASSERT_EQ(made.status, 0) << made.err;
      const std::string file =
          peer.write("m", detachedMessage(signer, kEntity + body.text, readFile(peer.path("sig"))));
      expectValid(file, std::string("gpgsm, ") + body.name);
    }
  }
}

TEST(SecurePeers, gpgsm_and_this_open_each_other) {
  if (shell("gpgsm --version").status != 0 || !hasOpenssl()) GTEST_SKIP() << "there is no gpgsm";
  const Gpgsm peer;
  for (const Sealing& how : sealings()) {
    // It knows neither AuthEnvelopedData nor OAEP, and opens nothing for elliptic keys.
    const std::string name = how.ours;
    if (contains(name, "gcm") || contains(name, "oaep") || !isForRsa(how)) continue;
    peer.write("sealed.der", layerOf(seal(peer.work(), how, mailOf("alice", "Shall we?\r\n"))).der);
    const Result result = peer.gpgsm("--passphrase-fd 0 --yes --decrypt -o open sealed.der < pw");
    EXPECT_EQ(result.status, 0) << how.ours << '\n' << result.err;
    EXPECT_EQ(readFile(peer.path("open")), mailOf("alice", "Shall we?\r\n")) << how.ours;
  }
  peer.write("entity", std::string(kEntity) + "Shall we?\r\n");
  for (const char* const reader : {"alice", "bob"}) {
    const Result made = peer.gpgsm("--yes --cipher-algo AES256 -r " + std::string(reader) +
                                   "@example.com --encrypt -o e entity");
    ASSERT_EQ(made.status, 0) << made.err;
    const std::string file =
        peer.write("m", opaqueMessage("alice", readFile(peer.path("e")), "enveloped-data"));
    EXPECT_EQ(cli_test::mailtree("body " + file + as(reader)).out, "Shall we?\r\n") << reader;
  }
}

class Nss : public Peer {
 public:
  Nss() {
    run("certutil -N -d sql:. --empty-password; certutil -A -d sql:. -n root -t CT,CT,CT -a -i " +
        certOf("root") + "; certutil -A -d sql:. -n issuer -t ,, -a -i " + certOf("intermediate"));
    for (const char* name : {"alice", "bob", "carol", "dave"})
      run("pk12util -d sql:. -K '' -W secret -i " + std::string(name) + ".p12");
  }
};

TEST(SecurePeers, nss_and_this_read_each_other) {
  if (shell("command -v cmsutil certutil pk12util").status != 0 || !hasOpenssl())
    GTEST_SKIP() << "there is no cmsutil";
  const Nss peer;
  for (const Signing& how : kSignings) {
    const Layer layer = layerOf(sign(peer.work(), how, mailOf(how.signer, "Shall we?\r\n")));
    peer.write("sig", layer.der);
    peer.write("content", layer.content);
    const Result result =
        peer.run("cmsutil -D -d sql:. -n -i sig" + std::string(layer.content.empty() ? "" : " -c content"));
    EXPECT_EQ(result.status, 0) << how.signer << ' ' << how.ours << '\n' << result.err;
  }
  for (const Body& body : bodies()) {
    peer.write("entity", kEntity + body.text);
    for (const char* const signer : {"alice", "carol"}) {
      const Result made =
          peer.run("cmsutil -S -T -G -d sql:. -N " + std::string(signer) + " -i entity -o sig");
      ASSERT_EQ(made.status, 0) << made.err;
      const std::string file =
          peer.write("m", detachedMessage(signer, kEntity + body.text, readFile(peer.path("sig"))));
      expectValid(file, std::string("cmsutil, ") + body.name);
    }
  }
}

TEST(SecurePeers, nss_and_this_open_each_other) {
  if (shell("command -v cmsutil certutil pk12util").status != 0 || !hasOpenssl())
    GTEST_SKIP() << "there is no cmsutil";
  const Nss peer;
  const std::string mail = mailOf("alice", "Shall we?\r\n");
  for (const Sealing& how : sealings()) {
    // It knows neither AuthEnvelopedData nor OAEP, and reads no message that is for elliptic keys too.
    const std::string name = how.ours;
    if (contains(name, "gcm") || contains(name, "oaep") || !isForRsa(how)) continue;
    peer.write("sealed.der", layerOf(seal(peer.work(), how, mail)).der);
    const Result result = peer.run("cmsutil -D -d sql:. -i sealed.der -o open");
    EXPECT_EQ(result.status, 0) << how.ours << '\n' << result.err;
    EXPECT_EQ(readFile(peer.path("open")), mail) << how.ours;
  }
  peer.write("entity", std::string(kEntity) + "Shall we?\r\n");
  for (const char* const reader : {"alice", "bob"}) {
    const Result made = peer.run("cmsutil -E -d sql:. -r " + std::string(reader) + " -i entity -o e");
    ASSERT_EQ(made.status, 0) << made.err;
    const std::string file =
        peer.write("m", opaqueMessage("alice", readFile(peer.path("e")), "enveloped-data"));
    EXPECT_EQ(cli_test::mailtree("body " + file + as(reader)).out, "Shall we?\r\n") << reader;
  }
}

}  // namespace
}  // namespace mailtree::interop
