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

inline constexpr int kCbc = static_cast<int>(ContentCipher::aesCbc);
inline constexpr int kGcm = static_cast<int>(ContentCipher::aesGcm);
inline constexpr int kTriple = static_cast<int>(ContentCipher::tripleDes);
inline constexpr int kOaep = static_cast<int>(KeyTransport::oaep);

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

/// A person's certificate, with its key, as everybody() holds it; of "-alice" without.
inline RefPtr<Certificate> person(const std::string& name) {
  if (name.starts_with('-')) return identity(name.substr(1) + ".pem");
  const RefPtr<Certificate> wanted = identity(name + ".pem");
  for (int i = 0; i < everybody().getNumCertificates(); ++i)
    if (everybody().getCertificate(i)->fingerprint() == wanted->fingerprint())
      return RefPtr<Certificate>(everybody().getCertificate(i));
  return {};
}

inline void addPeople(const std::vector<std::string>& names, ExtPtrArray& holders) {
  LogNull log;
  for (const auto& name : names) CertificateHolder::appendNewCertHolder(person(name).get(), holders, log);
}

class Pieces final : public _svDataSource {
 public:
  explicit Pieces(std::string_view text) : m_rest(text) {}
  std::optional<std::string_view> next() override {
    const std::string_view piece = m_rest.substr(0, 100'000);
    m_rest.remove_prefix(piece.size());
    return piece;
  }

 private:
  std::string_view m_rest;
};

struct SignAs {
  std::vector<std::string> signers = {"alice"};
  bool detached = false;
  HashId hash = HashId::sha256;
  bool pss = false, chain = true, time = false, certificate = false;
};

inline bool trySign(std::string_view text, const SignAs& as, DataBuffer& der, LogBase& log) {
  ExtPtrArray signers;
  addPeople(as.signers, signers);
  Pieces source(text);
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
  int cipher = kCbc, keyBits = 0;
  int transport = static_cast<int>(KeyTransport::pkcs1), oaepHash = 0;
  bool bySubjectKeyId = false, binary = true;
  long long sizeOff = 0;  ///< Added to the size that is announced.
};

inline bool tryEncrypt(std::string_view text, const EncryptAs& as, DataBuffer& der, LogBase& log) {
  ExtPtrArray recipients;
  addPeople(as.recipients, recipients);
  Pieces source(text);
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
  std::string content = "untouched";
  SecureLayer layer;
};

inline Opened openBlob(std::string_view der, SystemCerts& certs = everybody()) {
  Opened opened;
  DataBuffer content;
  content.append(opened.content);
  LogNull log;
  opened.done = Pkcs7Opener::open(der, certs, content, opened.layer, log);
  opened.content = bytesOf(content);
  return opened;
}

inline SecureLayer verifyBlob(std::string_view der, std::string_view content) {
  SecureLayer layer;
  LogNull log;
  Pkcs7Opener::verifyDetached(der, content, everybody(), layer, log);
  return layer;
}

/// Whether digest, signature, chain and key usage are right and whether it is revoked, each "y", "n" or "-";
/// then algorithm, digest, weaknesses and the problem: "yyyy- rsa sha1 [digest sha1] why".
inline std::string told(const SignerVerdict& signer) {
  std::string text;
  for (const Answer each : {signer.digestMatched, signer.signatureVerified, signer.chainTrusted,
                            signer.keyUsageFit, signer.revoked})
    text += "-ny"[static_cast<int>(each)];
  text += ' ' + signer.algorithm + ' ' + signer.digest;
  for (const std::string& weakness : signer.weaknesses) text += " [" + weakness + ']';
  return signer.problem.empty() ? text : text + ' ' + signer.problem;
}

inline std::string shown(std::string_view text) {
  return testing::PrintToString(text.substr(0, 40)) + " of " + std::to_string(text.size());
}

}  // namespace mailtree
