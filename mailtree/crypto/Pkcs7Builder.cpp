#include "mailtree/crypto/Pkcs7Builder.h"

#include <openssl/cms.h>
#include <openssl/ess.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

using Cms = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;
using Algorithm = Handle<X509_ALGOR, X509_ALGOR_free>;
using Hashing = Handle<EVP_MD_CTX, EVP_MD_CTX_free>;
using Hash = Handle<EVP_MD, EVP_MD_free>;
using Octets = Handle<ASN1_STRING, ASN1_STRING_free>;
using Time = Handle<ASN1_TIME, ASN1_TIME_free>;
using SigningCertificate = Handle<ESS_SIGNING_CERT_V2, ESS_SIGNING_CERT_V2_free>;

/// Ciphers that a reply may use, best first.
constexpr int kCapabilities[] = {NID_aes_256_gcm, NID_aes_128_gcm, NID_aes_256_cbc, NID_aes_192_cbc,
                                 NID_aes_128_cbc};

struct Signing {
  const EVP_MD* hash;
  std::string_view digest;
  bool withTime;
  bool withCertificate;
  bool pss;
};

enum class KeyKind { rsa, ecdsa, unknown };

KeyKind keyKind(const EVP_PKEY* key) {
  if (EVP_PKEY_is_a(key, "RSA")) return KeyKind::rsa;
  std::array<char, 32> curve{};
  if (!EVP_PKEY_is_a(key, "EC") || EVP_PKEY_get_group_name(key, curve.data(), curve.size(), nullptr) != 1)
    return KeyKind::unknown;
  const std::string_view name = curve.data();
  const bool known = name == "prime256v1" || name == "secp384r1" || name == "secp521r1";
  return known ? KeyKind::ecdsa : KeyKind::unknown;
}

/// Reads the content: hashes it, and keeps it when it is included.
bool readContent(_svDataSource& source, const EVP_MD* hash, DataBuffer* kept, std::string& digest) {
  const Hashing hashing(EVP_MD_CTX_new());
  if (!hashing || EVP_DigestInit_ex2(hashing.get(), hash, nullptr) != 1) return false;
  for (;;) {
    const auto piece = source.next();
    if (!piece) return false;
    if (piece->empty()) break;
    if (EVP_DigestUpdate(hashing.get(), piece->data(), piece->size()) != 1) return false;
    if (kept && !appendWiping(*kept, *piece)) return false;
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> octets{};
  unsigned size = 0;
  if (EVP_DigestFinal_ex(hashing.get(), octets.data(), &size) != 1) return false;
  digest.assign(reinterpret_cast<const char*>(octets.data()), size);
  return true;
}

template <class T, class Encode>
std::string encoded(Encode encode, T* object) {
  const int size = encode(object, nullptr);
  std::string der(static_cast<std::size_t>(std::max(size, 0)), '\0');
  auto* at = reinterpret_cast<unsigned char*>(der.data());
  if (size > 0) encode(object, &at);
  return der;
}

bool addAttribute(CMS_SignerInfo* signer, int nid, int type, const void* value, int size) {
  return CMS_signed_add1_attr_by_NID(signer, nid, type, value, size) == 1;
}

bool addSigningTime(CMS_SignerInfo* signer) {
  const Time now(ASN1_TIME_set(nullptr, std::time(nullptr)));
  return now && addAttribute(signer, NID_pkcs9_signingTime, ASN1_STRING_type(now.get()), now.get(), -1);
}

bool addCapabilities(CMS_SignerInfo* signer) {
  STACK_OF(X509_ALGOR)* list = nullptr;
  bool done = true;
  for (const int nid : kCapabilities) done = done && CMS_add_simple_smimecap(&list, nid, -1) == 1;
  done = done && CMS_add_smimecap(signer, list) == 1;
  sk_X509_ALGOR_pop_free(list, X509_ALGOR_free);
  return done;
}

bool addSigningCertificate(CMS_SignerInfo* signer, X509* certificate) {
  const SigningCertificate value(OSSL_ESS_signing_cert_v2_new_init(EVP_sha256(), certificate, nullptr, 1));
  if (!value) return false;
  const std::string der = encoded(i2d_ESS_SIGNING_CERT_V2, value.get());
  const Octets octets(ASN1_STRING_new());
  return octets && ASN1_STRING_set(octets.get(), der.data(), static_cast<int>(der.size())) == 1 &&
         addAttribute(signer, NID_id_smime_aa_signingCertificateV2, V_ASN1_SEQUENCE, octets.get(), -1);
}

bool addAttributes(CMS_SignerInfo* signer, X509* certificate, const Signing& signing) {
  return addAttribute(signer, NID_pkcs9_contentType, V_ASN1_OBJECT, OBJ_nid2obj(NID_pkcs7_data), -1) &&
         addAttribute(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, signing.digest.data(),
                      static_cast<int>(signing.digest.size())) &&
         (!signing.withTime || (addSigningTime(signer) && addCapabilities(signer))) &&
         (!signing.withCertificate || addSigningCertificate(signer, certificate));
}

/// The bytes to sign: the attributes as a SET OF (RFC 5652, 5.4), which is sorted in DER.
std::string attributesToSign(CMS_SignerInfo* signer) {
  std::vector<std::string> attributes;
  const int count = CMS_signed_get_attr_count(signer);
  attributes.reserve(static_cast<std::size_t>(std::max(count, 0)));
  for (int i = 0; i < count; ++i)
    attributes.push_back(encoded(i2d_X509_ATTRIBUTE, CMS_signed_get_attr(signer, i)));
  std::sort(attributes.begin(), attributes.end());
  return derOf([&](DerBackwardWriter& out) {
    for (std::size_t i = attributes.size(); i > 0; --i) out.put(attributes[i - 1]);
    out.wrap(kDerSet, 0);
  });
}

/// RSASSA-PSS-params (RFC 4055): one hash for everything, and a salt of the same
/// length. For sha1 these are the defaults.
std::string pssParameters(const EVP_MD* hash) {
  static constexpr std::string_view kMgf1 = "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x08";
  if (EVP_MD_is_a(hash, "SHA1")) return {"\x30\x00", 2};
  const Algorithm algorithm(X509_ALGOR_new());
  if (!algorithm ||
      X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(EVP_MD_get_type(hash)), V_ASN1_NULL, nullptr) != 1)
    return {};
  const std::string hashDer = encoded(i2d_X509_ALGOR, algorithm.get());
  return derOf([&](DerBackwardWriter& out) {
    const char salt = static_cast<char>(EVP_MD_get_size(hash));
    out.put({&salt, 1});
    out.wrap(kDerInteger, 0);
    out.wrap(derContext(2), 0);
    const std::size_t mask = out.size();
    out.put(hashDer);
    out.put(kMgf1);
    out.wrap(kDerSequence, mask);
    out.wrap(derContext(1), mask);
    const std::size_t hashed = out.size();
    out.put(hashDer);
    out.wrap(derContext(0), hashed);
    out.wrap(kDerSequence, 0);
  });
}

bool setAlgorithm(X509_ALGOR* algorithm, KeyKind kind, const Signing& signing) {
  if (kind == KeyKind::ecdsa) {
    int nid = NID_undef;
    return OBJ_find_sigid_by_algs(&nid, EVP_MD_get_type(signing.hash), NID_X9_62_id_ecPublicKey) == 1 &&
           X509_ALGOR_set0(algorithm, OBJ_nid2obj(nid), V_ASN1_UNDEF, nullptr) == 1;
  }
  if (!signing.pss)
    return X509_ALGOR_set0(algorithm, OBJ_nid2obj(NID_rsaEncryption), V_ASN1_NULL, nullptr) == 1;
  const std::string der = pssParameters(signing.hash);
  Octets octets(ASN1_STRING_new());
  if (!octets || ASN1_STRING_set(octets.get(), der.data(), static_cast<int>(der.size())) != 1 ||
      X509_ALGOR_set0(algorithm, OBJ_nid2obj(NID_rsassaPss), V_ASN1_SEQUENCE, octets.get()) != 1)
    return false;
  std::ignore = octets.release();
  return true;
}

bool makeSignature(const std::string& text, EVP_PKEY* key, bool pss, const EVP_MD* hash,
                   std::string& signature) {
  const Hashing hashing(EVP_MD_CTX_new());
  EVP_PKEY_CTX* options = nullptr;
  if (!hashing || EVP_DigestSignInit_ex(hashing.get(), &options, EVP_MD_get0_name(hash),
                                        contextAs<OSSL_LIB_CTX>(), nullptr, key, nullptr) != 1)
    return false;
  if (pss && (EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_PSS_PADDING) <= 0 ||
              EVP_PKEY_CTX_set_rsa_pss_saltlen(options, RSA_PSS_SALTLEN_DIGEST) <= 0))
    return false;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t size = 0;
  if (EVP_DigestSign(hashing.get(), nullptr, &size, bytes, text.size()) != 1) return false;
  signature.resize(size);
  if (EVP_DigestSign(hashing.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, bytes,
                     text.size()) != 1)
    return false;
  signature.resize(size);
  return true;
}

/// Deliberate: the attributes are signed here and not by CMS_final, which adds a signing time to every
/// signature, even when not requested.
bool signAttributes(CMS_SignerInfo* signer, EVP_PKEY* key, KeyKind kind, const Signing& signing) {
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, nullptr, &algorithm);
  std::string signature;
  return setAlgorithm(algorithm, kind, signing) &&
         makeSignature(attributesToSign(signer), key, kind == KeyKind::rsa && signing.pss, signing.hash,
                       signature) &&
         ASN1_STRING_set(CMS_SignerInfo_get0_signature(signer), signature.data(),
                         static_cast<int>(signature.size())) == 1;
}

bool addSigner(CMS_ContentInfo* cms, const Certificate& certificate, const Signing& signing, LogBase& log) {
  auto* const key = nativeKeyAs<EVP_PKEY>(certificate);
  if (!key) return failBuild(log, "A signer's certificate has no private key.");
  const KeyKind kind = keyKind(key);
  if (kind == KeyKind::unknown) {
    log.LogDataSb("keyAlgorithm", certificate.keyAlgorithm());
    return failBuild(
        log,
        "Cannot sign mail with a key of this type: only RSA and EC (P-256, P-384, P-521) are supported.");
  }
  auto* const native = nativeAs<X509>(certificate);
  CMS_SignerInfo* const signer = CMS_add1_signer(cms, native, key, signing.hash,
                                                 CMS_NOCERTS | CMS_NOSMIMECAP | CMS_BINARY | CMS_PARTIAL);
  if (!signer || !addAttributes(signer, native, signing) || !signAttributes(signer, key, kind, signing))
    return failBuildWithCryptoError(log, "Cannot create the signature.");
  return true;
}

/// Each certificate once, even if the lists repeat it.
class CertificateSet {
 public:
  explicit CertificateSet(CMS_ContentInfo* cms) : m_cms(cms) {}
  bool add(const Certificate& certificate) {
    if (std::find(m_added.begin(), m_added.end(), certificate.fingerprint()) != m_added.end()) return true;
    m_added.push_back(certificate.fingerprint());
    return CMS_add1_cert(m_cms, nativeAs<X509>(certificate)) == 1;
  }

 private:
  CMS_ContentInfo* m_cms;
  std::vector<std::string> m_added;
};

bool addCertificates(CMS_ContentInfo* cms, const ExtPtrArray& signers, const SystemCerts* chains) {
  CertificateSet set(cms);
  for (int i = 0; i < signers.getSize(); ++i) {
    const Certificate& signer = *CertificateHolder::getNthCert(signers, i);
    if (!set.add(signer)) return false;
    if (!chains) continue;
    for (const auto& issuer : chains->chainOf(signer))
      if (!set.add(*issuer)) return false;
  }
  return true;
}

bool encodeSignature(CMS_ContentInfo* cms, const DataBuffer* content, DataBuffer& der) {
  const std::string bare = encoded(i2d_CMS_ContentInfo, cms);
  if (!content) return der.append(bare) && !bare.empty();
  const auto frame = readPkcs7Frame(bare);
  const auto room = frame ? encodeWithRoom(*frame, content->getSize(), 0, der) : std::nullopt;
  if (!room) return false;
  if (!content->isEmpty()) std::memcpy(room->content, content->getData2(), content->getSize());
  return true;
}

bool haveCertificates(const ExtPtrArray& holders) {
  for (int i = 0; i < holders.getSize(); ++i)
    if (!CertificateHolder::getNthCert(holders, i)) return false;
  return holders.getSize() > 0;
}

}  // namespace

bool failBuild(LogBase& log, std::string_view what) {
  log.logError(what);
  return false;
}

bool failBuildWithCryptoError(LogBase& log, std::string_view what) {
  failBuild(log, what);
  const std::string reason = lastCryptoError();
  if (!reason.empty()) log.LogDataSb("reason", reason);
  return false;
}

bool Pkcs7Builder::createPkcs7Signature(_svDataSource& content, DataBuffer& /*unused*/, bool detached,
                                        bool includeChain, int hashId, bool signingTime,
                                        bool signingCertificate, _clsCades& cades, ExtPtrArray& signerCerts,
                                        SystemCerts& certs, DataBuffer& der, LogBase& log) {
  der.clear();
  const QuietErrors quiet;
  const bool done = neverThrow(false, [&] {
    const std::string hashName(_svHash::nameOf(hashId));
    if (hashName.empty()) return failBuild(log, "Unknown digest algorithm: nothing was signed.");
    if (!haveCertificates(signerCerts)) return failBuild(log, "No certificate to sign with.");
    auto* const context = contextAs<OSSL_LIB_CTX>();
    const Hash hash(EVP_MD_fetch(context, hashName.c_str(), nullptr));
    const Cms cms(CMS_sign_ex(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_DETACHED | CMS_BINARY,
                              context, nullptr));
    if (!hash || !cms) return failBuildWithCryptoError(log, "The cryptographic library cannot sign.");
    DataBuffer kept;
    const WipedAtEnd wiped(kept);
    std::string digest;
    if (!readContent(content, hash.get(), detached ? nullptr : &kept, digest))
      return failBuild(log, "Cannot read the content to sign.");
    const Signing signing{hash.get(), digest, signingTime, signingCertificate, cades.m_rsaPss};
    for (int i = 0; i < signerCerts.getSize(); ++i)
      if (!addSigner(cms.get(), *CertificateHolder::getNthCert(signerCerts, i), signing, log)) return false;
    if (!addCertificates(cms.get(), signerCerts, includeChain ? &certs : nullptr) ||
        !encodeSignature(cms.get(), detached ? nullptr : &kept, der))
      return failBuildWithCryptoError(log, "Cannot encode the signature.");
    return true;
  });
  if (!done) der.clear();
  return done;
}

}  // namespace mailtree
