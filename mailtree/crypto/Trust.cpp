#include "mailtree/crypto/Trust.h"

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>

#include "mailtree/crypto/Pem.h"
#include "mailtree/crypto/Weakness.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

/// Certificates between one and its trust anchor; real chains have a handful.
constexpr int kMaxChain = 10;

using CertificateStack = STACK_OF(X509);
void freeStack(CertificateStack* stack) { sk_X509_free(stack); }  // the certificates in it are borrowed
using StackHandle = Handle<CertificateStack, freeStack>;
using Check = Handle<X509_STORE_CTX, X509_STORE_CTX_free>;

bool pushAll(CertificateStack& stack, const Trust::Certificates& certificates) {
  return std::all_of(certificates.begin(), certificates.end(), [&](const RefPtr<Certificate>& each) {
    return !each || sk_X509_push(&stack, nativeAs<X509>(*each)) > 0;
  });
}

/// The findings of one check: the first error must not hide a revocation.
struct Findings {
  int firstError = X509_V_OK;
  bool revoked = false;
  bool listIsStale = false;
  bool hasNoList = false;                    ///< Of the issuer of the certificate to check.
  const X509_CRL* unverifiedList = nullptr;  ///< Signed by no authority on the path: it revokes nothing.
  const Trust::Certificates& held;
};

/// Whether an error means that a list is missing or does not apply, rather than a problem.
bool isMissingList(int error) noexcept {
  return error == X509_V_ERR_UNABLE_TO_GET_CRL || error == X509_V_ERR_DIFFERENT_CRL_SCOPE;
}

bool isUnverifiedList(int error) noexcept {
  return error == X509_V_ERR_CRL_SIGNATURE_FAILURE || error == X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER ||
         error == X509_V_ERR_UNABLE_TO_DECRYPT_CRL_SIGNATURE || error == X509_V_ERR_KEYUSAGE_NO_CRL_SIGN ||
         error == X509_V_ERR_CRL_PATH_VALIDATION_ERROR;
}

void note(Findings& findings, int error, const X509_CRL* list) {
  // At a time in the past, every current list is in the future.
  if (isMissingList(error) || error == X509_V_ERR_CRL_NOT_YET_VALID) return;
  if (error == X509_V_ERR_CRL_HAS_EXPIRED) {
    findings.listIsStale = true;
    return;
  }
  if (isUnverifiedList(error)) findings.unverifiedList = list;
  if (error == X509_V_ERR_CERT_REVOKED) {
    if (list && list == findings.unverifiedList) return;
    findings.revoked = true;
  }
  if (findings.firstError == X509_V_OK) findings.firstError = error;
}

/// Errors that rule out a path to a trust anchor.
bool rulesOutPath(int error) noexcept {
  constexpr int kEnds[] = {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT,
                           X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
                           X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE,
                           X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY,
                           X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT,
                           X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN,
                           X509_V_ERR_CERT_CHAIN_TOO_LONG,
                           X509_V_ERR_CERT_SIGNATURE_FAILURE,
                           X509_V_ERR_INVALID_CA,
                           X509_V_ERR_PATH_LENGTH_EXCEEDED,
                           X509_V_ERR_KEYUSAGE_NO_CERTSIGN};
  return std::ranges::find(kEnds, error) != std::end(kEnds);
}

/// Whether the store has all certificates found above the one to check.
bool isPathInStore(const CertificateStack* chain, const Trust::Certificates& held) {
  for (int i = 1; chain && i < sk_X509_num(chain); ++i) {
    const X509* const upper = sk_X509_value(chain, i);
    const auto isUpper = [&](const RefPtr<Certificate>& each) {
      return each && nativeAs<X509>(*each) == upper;
    };
    if (std::ranges::none_of(held, isUpper)) return false;
  }
  return true;
}

/// Called at each step. Continuing after an error finds the remaining ones. Stops when there is no path: keys
/// from a hostile message, which may be huge, are not used.
int onVerifyStep(int ok, X509_STORE_CTX* check) {
  auto* const findings = static_cast<Findings*>(X509_STORE_CTX_get_app_data(check));
  if (ok || !findings) return 1;
  const int error = X509_STORE_CTX_get_error(check);
  if (isMissingList(error) && X509_STORE_CTX_get_error_depth(check) == 0) findings->hasNoList = true;
  note(*findings, error, X509_STORE_CTX_get0_current_crl(check));
  return !rulesOutPath(error) || isPathInStore(X509_STORE_CTX_get0_chain(check), findings->held) ? 1 : 0;
}

/// Whether the authorities on the path are for mail: one that is not cannot vouch for mail.
bool areForMail(const CertificateStack* chain) {
  for (int i = 1; chain && i < sk_X509_num(chain); ++i)
    if ((X509_get_extended_key_usage(sk_X509_value(chain, i)) & (XKU_SMIME | XKU_ANYEKU)) == 0) return false;
  return true;
}

bool isValidAt(const CertificateStack* chain, std::int64_t unixSeconds) {
  auto at = static_cast<time_t>(unixSeconds);
  for (int i = 0; chain && i < sk_X509_num(chain); ++i) {
    const X509* const certificate = sk_X509_value(chain, i);
    if (X509_cmp_time(X509_get0_notBefore(certificate), &at) >= 0 ||
        X509_cmp_time(X509_get0_notAfter(certificate), &at) <= 0)
      return false;
  }
  return chain != nullptr;
}

void setUp(X509_STORE_CTX& check, Findings& findings, bool withLists, std::int64_t unixSeconds) {
  X509_STORE_CTX_set_app_data(&check, &findings);
  X509_STORE_CTX_set_verify_cb(&check, onVerifyStep);
  X509_VERIFY_PARAM* const settings = X509_STORE_CTX_get0_param(&check);
  X509_VERIFY_PARAM_set_time(settings, static_cast<time_t>(unixSeconds));
  X509_VERIFY_PARAM_set_depth(settings, kMaxChain);
  // Weak keys are reported elsewhere; here they would hide who signed old mail.
  X509_VERIFY_PARAM_set_auth_level(settings, 0);
  const unsigned long lists = withLists ? X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL : 0;
  X509_VERIFY_PARAM_set_flags(settings, X509_V_FLAG_PARTIAL_CHAIN | lists);
}

std::string problemOf(const Findings& findings) {
  if (findings.firstError != X509_V_OK) return X509_verify_cert_error_string(findings.firstError);
  return findings.listIsStale ? X509_verify_cert_error_string(X509_V_ERR_CRL_HAS_EXPIRED) : "";
}

bool isSelfIssued(const X509* x509) {
  return X509_NAME_cmp(X509_get_subject_name(x509), X509_get_issuer_name(x509)) == 0;
}

/// Of the certificates of a path, from the one to check to the anchor, or as far as it was found. The
/// signature of the last one does not matter when it is an anchor or self-issued.
std::vector<std::string> weaknessesOf(const CertificateStack* path, const Trust::Certificates& anchors) {
  std::vector<std::string> weaknesses;
  const int count = path ? sk_X509_num(path) : 0;
  for (int i = 0; i < count; ++i) {
    X509* const x509 = sk_X509_value(path, i);
    const bool isAnchor = std::ranges::any_of(anchors, [x509](const RefPtr<Certificate>& anchor) {
      return X509_cmp(x509, nativeAs<X509>(*anchor)) == 0;
    });
    const bool isTop = isAnchor || (i + 1 == count && isSelfIssued(x509));
    listWeaknesses(reinterpret_cast<NativeCertificate*>(x509),
                   i == 0 ? std::string() : "authority " + std::to_string(i) + ": ", !isTop, weaknesses);
    if (isAnchor) break;
  }
  return weaknesses;
}

X509_STORE* storeOf(NativeTrust* store) noexcept { return reinterpret_cast<X509_STORE*>(store); }

bool hasIssued(const Certificate& issuer, const Certificate& certificate) {
  auto* const upper = nativeAs<X509>(issuer);
  auto* const lower = nativeAs<X509>(certificate);
  EVP_PKEY* const key = X509_get0_pubkey(upper);
  return key && X509_check_issued(upper, lower) == X509_V_OK && X509_verify(lower, key) == 1;
}

}  // namespace

void Trust::Release::operator()(NativeTrust* store) const noexcept { X509_STORE_free(storeOf(store)); }

bool Trust::hasStore() {
  if (!m_store) m_store.reset(reinterpret_cast<NativeTrust*>(X509_STORE_new()));
  return m_store != nullptr;
}

bool Trust::addAnchor(Certificate& certificate) {
  if (isAnchor(certificate)) return true;
  if (!hasStore() || X509_STORE_add_cert(storeOf(m_store.get()), nativeAs<X509>(certificate)) != 1)
    return false;
  m_anchors.emplace_back(&certificate);
  return true;
}

bool Trust::isAnchor(const Certificate& certificate) const noexcept {
  return std::any_of(m_anchors.begin(), m_anchors.end(), [&](const RefPtr<Certificate>& anchor) {
    return anchor->fingerprint() == certificate.fingerprint();
  });
}

bool Trust::addList(std::string_view der) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  X509_CRL* list = X509_CRL_new_ex(contextAs<OSSL_LIB_CTX>(), nullptr);
  if (!list || !d2i_X509_CRL(&list, &bytes, static_cast<long>(der.size()))) return false;
  const Handle<X509_CRL, X509_CRL_free> owner(list);
  if (!hasStore() || X509_STORE_add_crl(storeOf(m_store.get()), list) != 1) return false;
  m_hasLists = true;
  return true;
}

int Trust::addLists(std::string_view bytes) {
  const QuietErrors quiet;
  if (!PemReader::looksLikePem(bytes)) return addList(bytes) ? 1 : 0;
  int added = 0;
  PemReader reader(bytes);
  DataBuffer der;
  while (const auto block = reader.next())
    if (block->name == "X509 CRL" && decodePemBody(*block, der) && addList(der.view())) ++added;
  return added;
}

ChainVerdict Trust::check(const Certificate& certificate, const Certificates& held,
                          const Certificates& others, std::int64_t unixSeconds,
                          std::optional<std::int64_t> then) const {
  const QuietErrors quiet;
  const StackHandle intermediates(sk_X509_new_null());
  const Check check(X509_STORE_CTX_new_ex(contextAs<OSSL_LIB_CTX>(), nullptr));
  Findings findings{.held = held};
  ChainVerdict verdict;
  verdict.problem = "the chain could not be checked";
  if (!intermediates || !check || !pushAll(*intermediates, held) || !pushAll(*intermediates, others) ||
      X509_STORE_CTX_init(check.get(), storeOf(m_store.get()), nativeAs<X509>(certificate),
                          intermediates.get()) != 1)
    return verdict;

  setUp(*check, findings, m_hasLists, unixSeconds);
  const bool isFinished = X509_verify_cert(check.get()) == 1;
  if (!isFinished && findings.firstError == X509_V_OK)
    findings.firstError = std::max(X509_STORE_CTX_get_error(check.get()), X509_V_ERR_UNSPECIFIED);
  const CertificateStack* const path = X509_STORE_CTX_get0_chain(check.get());
  if (findings.firstError == X509_V_OK && !areForMail(path)) findings.firstError = X509_V_ERR_INVALID_PURPOSE;

  verdict.isTrustChecked = hasAnchors();
  verdict.trusted = hasAnchors() && findings.firstError == X509_V_OK;
  verdict.trustedThen = verdict.trusted && then && isValidAt(path, *then);
  verdict.isRevocationChecked = m_hasLists && isFinished && !findings.hasNoList && !findings.unverifiedList;
  verdict.revoked = findings.revoked;
  verdict.problem = hasAnchors() ? problemOf(findings) : "no trust anchors were given";
  verdict.weaknesses = weaknessesOf(path, m_anchors);
  return verdict;
}

Certificate* Trust::issuerOf(const Certificate& certificate, const Certificates& held) const {
  for (const Certificates* among : {&m_anchors, &held})
    for (const RefPtr<Certificate>& candidate : *among)
      if (hasIssued(*candidate, certificate)) return candidate.get();
  return nullptr;
}

Trust::Certificates Trust::chainOf(const Certificate& certificate, const Certificates& held) const {
  const QuietErrors quiet;
  Certificates chain;
  const Certificate* top = &certificate;
  while (chain.size() <= kMaxChain && !isAnchor(*top) && !top->isSelfIssued()) {
    Certificate* const issuer = issuerOf(*top, held);
    if (!issuer) break;
    chain.emplace_back(issuer);
    top = issuer;
  }
  return chain;
}

}  // namespace mailtree
