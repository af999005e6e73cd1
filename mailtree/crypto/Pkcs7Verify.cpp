// Verifies a SignedData: whether each signature is cryptographically valid, and what is
// known about its signer.
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/cmserr.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/ess.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/crypto/Weakness.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

using Cms = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;
using Bio = Handle<BIO, BIO_free_all>;
using Hash = Handle<EVP_MD, EVP_MD_free>;
using Time = Handle<ASN1_TIME, ASN1_TIME_free>;

/// Maximum number of digest algorithms computed for one message.
constexpr int kMaxDigests = 8;
constexpr std::string_view kAttributePrefix = "\x2A\x86\x48\x86\xF7\x0D\x01\x09";

std::string_view octetsOf(const ASN1_STRING* text) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<std::size_t>(ASN1_STRING_length(text))};
}

/// Keeps the first problem: later ones are mostly its consequences.
void note(std::string& problem, std::string_view words) {
  if (problem.empty()) problem = words;
}

int digestOf(CMS_SignerInfo* signer) {
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  return nidOf(digest);
}

int signatureAlgorithmOf(CMS_SignerInfo* signer) {
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, nullptr, &algorithm);
  return nidOf(algorithm);
}

/// The content hashed once for each algorithm that the signers use, not for each that the message lists: a
/// message may list one a million times.
class ContentHashes {
 public:
  ContentHashes(const std::vector<CMS_SignerInfo*>& signers, std::string_view content) {
    for (CMS_SignerInfo* const signer : signers) add(digestOf(signer));
    if (m_chain && !hash(content)) {
      m_hashes.clear();
      m_chain.reset();
    }
  }

  /// The form the library needs. Null without any.
  BIO* chain() const noexcept { return m_chain.get(); }
  /// Empty for an unknown algorithm.
  std::string_view valueOf(int nid) {
    for (auto& hash : m_hashes)
      if (hash.nid == nid) return finished(hash);
    return {};
  }

 private:
  struct ContentHash {
    int nid;
    Hash algorithm;
    BIO* filter;  ///< In the chain.
    std::string value;
  };

  void add(int nid) {
    for (const auto& hash : m_hashes)
      if (hash.nid == nid) return;
    if (nid == NID_undef || m_hashes.size() == kMaxDigests) return;
    if (!m_chain) m_chain.reset(BIO_new(BIO_s_null()));
    Hash algorithm(EVP_MD_fetch(contextAs<OSSL_LIB_CTX>(), OBJ_nid2sn(nid), nullptr));
    Bio filter(BIO_new(BIO_f_md()));
    if (!m_chain || !algorithm || !filter || BIO_set_md(filter.get(), algorithm.get()) <= 0) return;
    BIO* const head = filter.get();
    BIO_push(filter.release(), m_chain.release());
    m_chain.reset(head);
    m_hashes.push_back({nid, std::move(algorithm), head, {}});
  }

  bool hash(std::string_view content) {
    while (!content.empty()) {
      const std::string_view piece = content.substr(0, kMaxPerCall);
      if (BIO_write(m_chain.get(), piece.data(), static_cast<int>(piece.size())) <= 0) return false;
      content.remove_prefix(piece.size());
    }
    return true;
  }

  static std::string_view finished(ContentHash& hash) {
    if (!hash.value.empty()) return hash.value;
    EVP_MD_CTX* running = nullptr;
    const Handle<EVP_MD_CTX, EVP_MD_CTX_free> copy(EVP_MD_CTX_new());
    std::array<unsigned char, EVP_MAX_MD_SIZE> octets{};
    unsigned size = 0;
    if (BIO_get_md_ctx(hash.filter, &running) <= 0 || !copy || EVP_MD_CTX_copy_ex(copy.get(), running) != 1 ||
        EVP_DigestFinal_ex(copy.get(), octets.data(), &size) != 1)
      return {};
    hash.value.assign(reinterpret_cast<const char*>(octets.data()), size);
    return hash.value;
  }

  std::vector<ContentHash> m_hashes;  // before the chain, which uses the algorithms until its end
  Bio m_chain;
};

/// Subtracts the cost of verifying signatures from the budget of the message.
class KeyWork {
 public:
  explicit KeyWork(std::uint64_t& left) noexcept : m_left(left) {}

  /// Why the key is not used; empty when it may be used, and its cost is then subtracted.
  std::string_view rejectionReason(const Certificate& certificate) {
    const EVP_PKEY* const key = X509_get0_pubkey(nativeAs<X509>(certificate));
    if (!key) return "the signer's key cannot be read";
    const bool isRsa = EVP_PKEY_is_a(key, "RSA") || EVP_PKEY_is_a(key, "RSA-PSS");
    const std::uint64_t exponent = isRsa ? exponentBits(key) : 0;
    const auto bits = static_cast<std::uint64_t>(certificate.keyBits());
    if (bits > kMaxKeyBits || exponent > kMaxExponentBits) return "the signer's key is too large";
    const std::uint64_t work = bits * bits *
                               (isRsa                       ? exponent
                                : EVP_PKEY_is_a(key, "DSA") ? kDsa
                                                            : kCurve * bits);
    if (work > m_left) return "too many signatures with large keys: this one was not checked";
    m_left -= work;
    return {};
  }

 private:
  static constexpr std::uint64_t kMaxKeyBits = 16'384;
  static constexpr std::uint64_t kMaxExponentBits = 64;
  /// Two exponents of 256 bits.
  static constexpr std::uint64_t kDsa = 512;
  /// Measured for P-384; the slowest, binary curves, cost half as much again.
  static constexpr std::uint64_t kCurve = 55;

  static std::uint64_t exponentBits(const EVP_PKEY* key) {
    BIGNUM* raw = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &raw) != 1) return kMaxExponentBits + 1;
    const Handle<BIGNUM, BN_free> exponent(raw);
    return static_cast<std::uint64_t>(BN_num_bits(raw));
  }

  std::uint64_t& m_left;
};

/// The results of path validation, each computed once.
class ChainChecks {
 public:
  ChainChecks(const SystemCerts& certs, const std::vector<RefPtr<Certificate>>& others) noexcept
      : m_certs(certs), m_others(others) {}

  ChainVerdict of(const Certificate& certificate, std::optional<std::int64_t> then) {
    for (const Known& known : m_known)
      if (known.fingerprint == certificate.fingerprint() && known.then == then) return known.verdict;
    if (m_known.size() == kMaxChainChecks) {
      ChainVerdict refused;
      refused.problem = "too many different signers: the chain of this one was not checked";
      listWeaknesses(certificate.native(), {}, /*signatureCounts=*/!certificate.isSelfIssued(),
                     refused.weaknesses);
      return refused;
    }
    m_known.push_back(
        {certificate.fingerprint(), then, m_certs.checkChain(certificate, m_others, m_now, then)});
    return m_known.back().verdict;
  }

 private:
  struct Known {
    std::string fingerprint;
    std::optional<std::int64_t> then;
    ChainVerdict verdict;
  };

  const SystemCerts& m_certs;
  const std::vector<RefPtr<Certificate>>& m_others;
  std::int64_t m_now = std::time(nullptr);
  std::vector<Known> m_known;
};

struct Verification {
  SystemCerts& certs;
  const std::vector<RefPtr<Certificate>>& others;
  std::string_view content;
  std::string_view contentType;
  ContentHashes& hashes;
  KeyWork work;
  ChainChecks chains{certs, others};
};

/// One value of one attribute (RFC 5652, 11.1 and 11.2); empty otherwise.
std::string_view singleAttribute(CMS_SignerInfo* signer, int nid, int type) {
  constexpr int kExactlyOne = -3;
  const void* value = CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(nid), kExactlyOne, type);
  if (!value) return {};
  if (type != V_ASN1_OBJECT) return octetsOf(static_cast<const ASN1_STRING*>(value));
  const auto* object = static_cast<const ASN1_OBJECT*>(value);
  return {reinterpret_cast<const char*>(OBJ_get0_data(object)), OBJ_length(object)};
}

std::optional<std::int64_t> claimedTime(CMS_SignerInfo* signer) {
  const int at = CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, -1);
  if (at < 0) return {};
  X509_ATTRIBUTE* const attribute = CMS_signed_get_attr(signer, at);
  const ASN1_TYPE* const value = X509_ATTRIBUTE_get0_type(attribute, 0);
  if (!value || (value->type != V_ASN1_UTCTIME && value->type != V_ASN1_GENERALIZEDTIME)) return {};
  const Time epoch(ASN1_TIME_set(nullptr, 0));
  int days = 0;
  int seconds = 0;
  constexpr std::int64_t kSecondsOfDay = 86'400;
  if (!epoch || ASN1_TIME_diff(&days, &seconds, epoch.get(), value->value.asn1_string) != 1) return {};
  return days * kSecondsOfDay + seconds;
}

/// Whether a content is itself a set of signed attributes. A signature without attributes over such bytes may
/// have been made over another message's attributes (RFC 5652, 5.3).
bool looksLikeSignedAttributes(std::string_view content) {
  DerReader reader(content);
  const auto set = reader.nextIf(kDerSet);
  if (!set || !reader.atEnd()) return false;
  const auto attribute = DerReader(set->content).nextIf(kDerSequence);
  if (!attribute) return false;
  const auto type = DerReader(attribute->content).nextIf(kDerObjectId);
  return type && type->content.starts_with(kAttributePrefix);
}

bool hasSignedAttributes(CMS_SignerInfo* signer) { return CMS_signed_get_attr_count(signer) >= 0; }

/// Compares the signed digest with that of the content, which takes no certificate.
void checkDigest(CMS_SignerInfo* signer, Verification& in, SignerVerdict& verdict) {
  const std::string_view claimed = singleAttribute(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING);
  const std::string_view computed = in.hashes.valueOf(digestOf(signer));
  if (computed.empty()) return note(verdict.problem, "unknown digest algorithm");
  if (claimed.empty()) return note(verdict.problem, "the signature has no digest of the content");
  verdict.digestMatched = answerOf(claimed == computed);
  if (claimed != computed) note(verdict.problem, "the content is not the signed content");
}

void reject(SignerVerdict& verdict, std::string_view why) {
  verdict.signatureVerified = Answer::no;
  note(verdict.problem, why);
}

/// Why the library has no result, from its last error; empty when the result is a plain "invalid".
std::string_view failureReason(int result) {
  const unsigned long error = ERR_peek_last_error();
  const int reason = ERR_GET_LIB(error) == ERR_LIB_CMS ? ERR_GET_REASON(error) : 0;
  if (result == 0 || reason == CMS_R_VERIFICATION_FAILURE) return {};
  if (reason == CMS_R_UNKNOWN_DIGEST_ALGORITHM) return "unknown digest algorithm";
  if (reason == CMS_R_ATTRIBUTE_ERROR) return "the signed attributes are malformed";
  return "the signature algorithm is unknown or does not match the signer's key";
}

/// Stores the result of the library: 1 means valid.
void storeResult(int result, std::string_view wrong, SignerVerdict& verdict) {
  if (result == 1) {
    verdict.signatureVerified = Answer::yes;
    return;
  }
  const std::string_view failure = failureReason(result);
  if (failure.empty()) return reject(verdict, wrong);
  note(verdict.problem, failure);
}

void verifyWithAttributes(CMS_SignerInfo* signer, Verification& in, SignerVerdict& verdict) {
  if (singleAttribute(signer, NID_pkcs9_contentType, V_ASN1_OBJECT) != in.contentType)
    return reject(verdict, "the signature is for another content type");
  storeResult(CMS_SignerInfo_verify(signer), "the signature does not match the signer's key", verdict);
}

/// The signature is over the content itself: there is no separate digest.
void verifyWithoutAttributes(CMS_SignerInfo* signer, Verification& in, SignerVerdict& verdict) {
  if (in.contentType != kDataType) return reject(verdict, "signed attributes are missing");
  if (looksLikeSignedAttributes(in.content))
    return reject(verdict, "the content may be the attributes of another signature");
  if (in.hashes.valueOf(digestOf(signer)).empty()) return note(verdict.problem, "unknown digest algorithm");
  storeResult(CMS_SignerInfo_verify_content(signer, in.hashes.chain()),
              "the signature does not match the content and the signer's key", verdict);
  if (verdict.signatureVerified == Answer::yes) verdict.digestMatched = Answer::yes;
}

using CertificateStack = STACK_OF(X509);
void freeStack(CertificateStack* stack) { sk_X509_free(stack); }  // the certificates in it are borrowed
using Borrowed = Handle<CertificateStack, freeStack>;

template <class T>
using Decode = T* (*)(T**, const unsigned char**, long);

template <class T>
T* decodedAttribute(CMS_SignerInfo* signer, int nid, Decode<T> decode) {
  const std::string_view der = singleAttribute(signer, nid, V_ASN1_SEQUENCE);
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  return der.empty() ? nullptr : decode(nullptr, &at, static_cast<long>(der.size()));
}

/// Whether the signing-certificate attribute (RFC 5035) names another certificate: a key may be in several,
/// and someone else may have put it in theirs.
bool namesAnotherCertificate(CMS_SignerInfo* signer, const Certificate& certificate) {
  using First = Handle<ESS_SIGNING_CERT, ESS_SIGNING_CERT_free>;
  using Second = Handle<ESS_SIGNING_CERT_V2, ESS_SIGNING_CERT_V2_free>;
  const First first(decodedAttribute(signer, NID_id_smime_aa_signingCertificate, d2i_ESS_SIGNING_CERT));
  const Second second(
      decodedAttribute(signer, NID_id_smime_aa_signingCertificateV2, d2i_ESS_SIGNING_CERT_V2));
  if (!first && !second) return false;
  const Borrowed chain(sk_X509_new_null());
  if (!chain || sk_X509_push(chain.get(), nativeAs<X509>(certificate)) <= 0) return true;
  return OSSL_ESS_check_signing_certs(first.get(), second.get(), chain.get(), /*require=*/0) <= 0;
}

/// Certificates that may belong to the signer: issuer and serial number, or the key
/// identifier, prove nothing.
std::vector<Certificate*> candidatesFor(CMS_SignerInfo* signer, const Verification& in) {
  std::vector<Certificate*> found;
  const auto consider = [&](Certificate* certificate) {
    if (found.size() < kMaxSignerCandidates &&
        CMS_SignerInfo_cert_cmp(signer, nativeAs<X509>(*certificate)) == 0)
      found.push_back(certificate);
  };
  for (const auto& certificate : in.others) consider(certificate.get());
  for (int i = 0; i < in.certs.getNumCertificates(); ++i) consider(in.certs.getCertificate(i));
  for (const auto& anchor : in.certs.trustAnchors()) consider(anchor.get());
  return found;
}

std::string algorithmName(CMS_SignerInfo* signer, const Certificate& certificate) {
  if (signatureAlgorithmOf(signer) == NID_rsassaPss) return "rsa-pss";
  if (certificate.keyAlgorithm() == "EC") return "ecdsa";
  return lowerCase(certificate.keyAlgorithm());
}

Answer revocationIn(const ChainVerdict& chain) {
  if (chain.revoked) return Answer::yes;
  return chain.isRevocationChecked ? Answer::no : Answer::notChecked;
}

void judgeSigner(const Certificate& certificate, Verification& in, SignerVerdict& verdict) {
  const ChainVerdict now = in.chains.of(certificate, verdict.signingTime);
  if (now.isTrustChecked) verdict.chainTrusted = answerOf(now.trusted);
  if (now.isTrustChecked && verdict.signingTime) verdict.chainTrustedThen = answerOf(now.trustedThen);
  verdict.revoked = revocationIn(now);
  const bool isFit = certificate.isFitFor(CertificateUse::sign);
  verdict.keyUsageFit = answerOf(isFit);
  verdict.weaknesses.insert(verdict.weaknesses.end(), now.weaknesses.begin(), now.weaknesses.end());
  verdict.chainProblem = now.problem;
  if (!now.trusted) note(verdict.problem, now.problem);
  if (now.revoked) note(verdict.problem, "the certificate was revoked");
  if (!isFit) note(verdict.problem, "the certificate does not allow signing mail");
}

/// The claims of a signer info that need no certificate.
SignerVerdict claimsOf(CMS_SignerInfo* signer, Verification& in) {
  const int digest = digestOf(signer);
  SignerVerdict verdict;
  verdict.digest = digestName(digest);
  if (isWeakDigest(digest)) verdict.weaknesses.push_back("digest " + verdict.digest);
  verdict.signingTime = claimedTime(signer);
  if (hasSignedAttributes(signer)) checkDigest(signer, in, verdict);
  return verdict;
}

void verifySignature(CMS_SignerInfo* signer, const Certificate& certificate, Verification& in,
                     SignerVerdict& verdict) {
  const std::string_view reason = in.work.rejectionReason(certificate);
  if (!reason.empty()) return note(verdict.problem, reason);
  CMS_SignerInfo_set1_signer_cert(signer, nativeAs<X509>(certificate));
  if (hasSignedAttributes(signer))
    verifyWithAttributes(signer, in, verdict);
  else
    verifyWithoutAttributes(signer, in, verdict);
  if (verdict.signatureVerified == Answer::yes && namesAnotherCertificate(signer, certificate))
    reject(verdict, "the signature was made for another certificate");
}

SignerVerdict judge(CMS_SignerInfo* signer, Verification& in) {
  const SignerVerdict claimed = claimsOf(signer, in);
  SignerVerdict verdict = claimed;
  Certificate* chosen = nullptr;
  for (Certificate* const candidate : candidatesFor(signer, in)) {
    SignerVerdict trial = claimed;
    verifySignature(signer, *candidate, in, trial);
    if (chosen && trial.signatureVerified != Answer::yes) continue;
    chosen = candidate;
    verdict = std::move(trial);
    if (verdict.signatureVerified == Answer::yes) break;
  }
  if (!chosen) {
    note(verdict.problem, "no certificate of the signer");
    return verdict;
  }
  verdict.certificate = RefPtr<Certificate>(chosen);
  verdict.algorithm = algorithmName(signer, *chosen);
  judgeSigner(*chosen, in, verdict);
  return verdict;
}

/// A certificate already in the store is not read again.
RefPtr<Certificate> readCertificate(std::string_view der, const SystemCerts& certs, LogBase& log) {
  for (int i = 0; i < certs.getNumCertificates(); ++i)
    if (certs.getCertificate(i)->der().view() == der) return RefPtr<Certificate>(certs.getCertificate(i));
  return RefPtr<Certificate>(Certificate::createFromDer(der, log));
}

/// Collects every certificate of the frame and skips the other choices.
void collectCertificates(const Pkcs7Frame& frame, const SystemCerts& certs, SecureLayer& layer) {
  const auto list = DerReader(frame.after).nextIf(derContext(0));
  if (!list) return;
  LogNull log;
  DerReader elements(list->content);
  std::size_t bytesLeft = kMaxLayerCertificateBytes;
  for (int left = kMaxLayerCertificates; left > 0; --left) {
    const auto element = elements.next();
    if (!element) break;
    const std::size_t size = element->whole.size();
    if (element->tag != kDerSequence || size > std::min(kMaxCertificateBytes, bytesLeft)) continue;
    bytesLeft -= size;
    RefPtr<Certificate> certificate = readCertificate(element->whole, certs, log);
    if (certificate) layer.certificates.push_back(std::move(certificate));
  }
}

/// The frame without its certificates and revocation lists. They are read here, because the library would
/// read all of them, however many a hostile message has.
Pkcs7Frame withoutCertificates(Pkcs7Frame frame) {
  DerReader fields(frame.after);
  fields.nextIf(derContext(0));
  fields.nextIf(derContext(1));
  frame.after = fields.rest();
  return frame;
}

std::vector<CMS_SignerInfo*> signersOf(CMS_ContentInfo* cms) {
  STACK_OF(CMS_SignerInfo)* const stack = CMS_get0_SignerInfos(cms);
  std::vector<CMS_SignerInfo*> signers;
  const int count = stack ? sk_CMS_SignerInfo_num(stack) : 0;
  signers.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) signers.push_back(sk_CMS_SignerInfo_value(stack, i));
  return signers;
}

}  // namespace

bool verifySignedData(const Pkcs7Frame& frame, std::string_view content, SystemCerts& certs,
                      SecureLayer& layer, LoadBudget& budget) {
  collectCertificates(frame, certs, layer);
  const int signerCount = countFirstSet(frame.after, budget.signers);
  if (signerCount > budget.signers) {
    layer.problem = "too many signers";
    return true;
  }
  budget.signers -= signerCount;
  const Cms cms(reinterpret_cast<CMS_ContentInfo*>(parseWithoutContent(withoutCertificates(frame))));
  if (!cms) {
    layer.problem = "the signature is malformed";
    return false;
  }
  const std::vector<CMS_SignerInfo*> signers = signersOf(cms.get());
  ContentHashes hashes(signers, content);
  Verification verification{certs,  layer.certificates,     content, frame.contentType,
                            hashes, KeyWork(budget.keyWork)};
  for (CMS_SignerInfo* const signer : signers) layer.signers.push_back(judge(signer, verification));
  return true;
}

}  // namespace mailtree
