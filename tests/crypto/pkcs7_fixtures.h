// crypto/pkcs7_fixtures.h - signing, encrypting and opening with the test identities, in one line each.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/crypto/Pkcs7Opener.h"
#include "tests/support/identities.h"

namespace mailtree {

inline std::string bytesOf(const DataBuffer& buffer) { return std::string(buffer.view()); }

/// Certificates, keys and the anchor of everybody.
inline SystemCerts& everybody() {
  static SystemCerts certs;
  static const bool filled = [] {
    LogMemory log;
    addIdentities(certs,
                  {"chain.pem", "alice.pem", "alice.key", "bob.pem", "bob.key", "carol.pem", "carol.key",
                   "dave.pem", "dave.key", "weak.pem", "weak.key", "ed25519.pem", "ed25519.key"});
    return certs.addTrustAnchors(identityFile("root.pem").c_str(), log) == 1;
  }();
  EXPECT_TRUE(filled);
  return certs;
}

/// A person's certificate, with its key, as everybody() holds it.
inline Certificate* person(const std::string& name) {
  const RefPtr<Certificate> wanted = identity(name + ".pem");
  for (int i = 0; i < everybody().getNumCertificates(); ++i)
    if (everybody().getCertificate(i)->fingerprint() == wanted->fingerprint())
      return everybody().getCertificate(i);
  return nullptr;
}

/// A store with one person's certificate and key.
struct Holder {
  explicit Holder(const std::string& name) {
    addIdentities(certs, {(name + ".pem").c_str(), (name + ".key").c_str()});
  }
  SystemCerts certs;
};

class Pieces final : public _svDataSource {
 public:
  Pieces(std::string_view text, std::size_t size) : m_rest(text), m_size(size) {}
  std::optional<std::string_view> next() override {
    const std::string_view piece = m_rest.substr(0, m_size);
    m_rest.remove_prefix(piece.size());
    return piece;
  }

 private:
  std::string_view m_rest;
  std::size_t m_size;
};

struct SignAs {
  std::vector<std::string> signers = {"alice"};
  bool detached = false;
  HashId hash = HashId::sha256;
  bool pss = false;
  bool chain = true;
  bool time = false;
  bool certificate = false;
};

inline bool trySign(std::string_view text, const SignAs& as, DataBuffer& der, LogBase& log) {
  ExtPtrArray signers;
  for (const auto& name : as.signers) CertificateHolder::appendNewCertHolder(person(name), signers, log);
  Pieces source(text, 100'000);
  DataBuffer unused;
  _clsCades cades;
  cades.m_rsaPss = as.pss;
  return Pkcs7Builder::createPkcs7Signature(source, unused, as.detached, as.chain, static_cast<int>(as.hash),
                                            as.time, as.certificate, cades, signers, everybody(), der, log);
}

inline std::string signedBlob(std::string_view text, const SignAs& as = {}) {
  DataBuffer der;
  LogMemory log;
  EXPECT_TRUE(trySign(text, as, der, log)) << log.text();
  return bytesOf(der);
}

struct EncryptAs {
  std::vector<std::string> recipients = {"alice"};
  int cipher = static_cast<int>(ContentCipher::aesCbc);
  int keyBits = 0;
  int transport = static_cast<int>(KeyTransport::pkcs1);
  int oaepHash = 0;
  bool bySubjectKeyId = false;
  bool binary = true;
  long long sizeOff = 0;  ///< Added to the size that is announced.
};

inline bool tryEncrypt(std::string_view text, const EncryptAs& as, DataBuffer& der, LogBase& log) {
  ExtPtrArray recipients;
  for (const auto& name : as.recipients)
    CertificateHolder::appendNewCertHolder(person(name), recipients, log);
  Pieces source(text, 100'000);
  return Pkcs7Builder::createPkcs7Enveloped(source, static_cast<long long>(text.size()) + as.sizeOff,
                                            as.binary, as.cipher, as.keyBits, recipients, as.transport,
                                            as.oaepHash, as.bySubjectKeyId, everybody(), der, log);
}

inline std::string envelope(std::string_view text, const EncryptAs& as = {}) {
  DataBuffer der;
  LogMemory log;
  EXPECT_TRUE(tryEncrypt(text, as, der, log)) << log.text();
  return bytesOf(der);
}

struct Opened {
  bool done = false;
  std::string content;
  SecureLayer layer;
};

inline Opened openBlob(std::string_view der, SystemCerts& certs = everybody()) {
  Opened opened;
  DataBuffer content;
  content.append("untouched");
  LogNull log;
  opened.done = Pkcs7Opener::open(der, certs, content, opened.layer, log);
  opened.content = bytesOf(content);
  return opened;
}

inline SecureLayer verifyBlob(std::string_view der, std::string_view content,
                              SystemCerts& certs = everybody()) {
  SecureLayer layer;
  LogNull log;
  Pkcs7Opener::verifyDetached(der, content, certs, layer, log);
  return layer;
}

/// Contents that a careless hand would change: each is to come back as it was.
inline std::vector<std::string> difficultContents() {
  return {"",
          "x",
          "bare\nline\nfeeds",
          "bare\rreturns\r",
          "trailing blanks  \r\n \t\r\n",
          "no final line break",
          std::string("nul\0inside", 10),
          std::string(15, 'a'),
          std::string(16, 'b'),
          std::string(17, 'c'),
          std::string(std::size_t{8} << 20, 'm')};
}

inline std::string shown(std::string_view text) {
  return testing::PrintToString(text.substr(0, 40)) + " of " + std::to_string(text.size());
}

}  // namespace mailtree
