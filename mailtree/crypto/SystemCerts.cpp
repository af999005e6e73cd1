#include "mailtree/crypto/SystemCerts.h"

#include <openssl/evp.h>

#include <algorithm>
#include <chrono>
#include <unordered_map>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/CertificateFiles.h"
#include "mailtree/crypto/CertificateReader.h"
#include "mailtree/crypto/HostTrust.h"
#include "mailtree/crypto/Trust.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

std::int64_t now() noexcept {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::int64_t{std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count()};
}

bool areSameKey(const NativeKey* a, const NativeKey* b) noexcept {
  return EVP_PKEY_eq(reinterpret_cast<const EVP_PKEY*>(a), reinterpret_cast<const EVP_PKEY*>(b)) == 1;
}

/// Why a certificate with the right address cannot be used; null when it can.
const char* rejectionReason(const Certificate& certificate, CertificateUse use, std::int64_t when) noexcept {
  if (!certificate.isValidAt(when)) return "it is expired or not yet valid";
  if (use == CertificateUse::sign && !certificate.hasPrivateKey()) return "it has no private key";
  if (!certificate.isFitFor(use)) return "its key usage does not allow it";
  return nullptr;
}

bool isRevoked(const Certificate& certificate, const Trust& trust,
               const std::vector<RefPtr<Certificate>>& held, std::int64_t when) {
  return trust.hasLists() && trust.check(certificate, held, {}, when, {}).revoked;
}

void logSkipped(const Certificate& certificate, const char* reason, LogBase& log) {
  if (!log.m_verboseLogging) return;
  XString subject;
  certificate.getSubjectDN(subject, log);
  log.LogDataSb("subjectDN", subject.view());
  log.logInfo("Certificate skipped: " + std::string(reason));
}

/// How unreadable input is logged: a file named by the caller must be readable, a file in
/// a folder need not be.
enum class Problems { asErrors, asInformation };

void logProblems(const std::vector<std::string>& problems, Problems how, LogBase& log) {
  for (const std::string& problem : problems) {
    if (how == Problems::asErrors)
      log.logError("Cannot be read: " + problem);
    else if (log.m_verboseLogging)
      log.logInfo("Skipped: " + problem);
  }
}

/// Passes each file at a path, or in the folder there, to `take(bytes, how)`, which returns
/// the number of items read.
template <class Take>
int addFilesAt(const char* path, const char* nothingFound, LogBase& log, Take&& take) {
  const std::vector<std::string> files = certificateFilesAt(path);
  const bool isFolder = files.size() != 1 || files.front() != viewOf(path);
  LogNull quiet;
  LogBase& fileLog = isFolder && !log.m_verboseLogging ? quiet : log;
  int added = 0;
  for (const std::string& file : files) {
    DataBuffer bytes;
    const WipedAtEnd wiped(bytes);
    if (isFolder && log.m_verboseLogging) log.LogDataSb("file", file);
    if (!loadCertificateFile(file.c_str(), bytes, fileLog)) continue;
    added += take(bytes.view(), isFolder ? Problems::asInformation : Problems::asErrors);
  }
  if (added == 0 && isFolder) {
    log.LogDataSb("path", viewOf(path));
    log.logError(nothingFound);
  }
  return added;
}

}  // namespace

struct SystemCerts::Contents {
  std::vector<RefPtr<Certificate>> certificates;
  std::unordered_map<std::string, std::size_t> positions;  ///< By fingerprint.
  std::vector<KeyPtr> keys;                                ///< All of them: a renewed certificate may follow.
  Trust trust;

  void addCertificate(Certificate& certificate);
  void addKey(KeyPtr key);
  int add(KeyMaterial found);
  RefPtr<Certificate> withKnownKey(Certificate& certificate) const;
};

/// The certificate with its key, if known, or as it is.
RefPtr<Certificate> SystemCerts::Contents::withKnownKey(Certificate& certificate) const {
  if (certificate.hasPrivateKey()) return RefPtr<Certificate>(&certificate);
  for (const KeyPtr& key : keys)
    if (Owned<Certificate> joined = CertificateReader::withKey(certificate, *key))
      return RefPtr<Certificate>(joined.release());
  return RefPtr<Certificate>(&certificate);
}

void SystemCerts::Contents::addCertificate(Certificate& certificate) {
  const auto known = positions.find(certificate.fingerprint());
  if (known != positions.end()) {
    RefPtr<Certificate>& same = certificates[known->second];
    if (certificate.hasPrivateKey() && !same->hasPrivateKey()) same = RefPtr<Certificate>(&certificate);
    return;
  }
  certificates.push_back(withKnownKey(certificate));
  positions.emplace(certificate.fingerprint(), certificates.size() - 1);
}

void SystemCerts::Contents::addKey(KeyPtr key) {
  const auto isKnown = [&](const KeyPtr& known) { return areSameKey(known.get(), key.get()); };
  if (std::ranges::any_of(keys, isKnown)) return;
  for (RefPtr<Certificate>& each : certificates) {
    if (each->hasPrivateKey()) continue;
    if (Owned<Certificate> joined = CertificateReader::withKey(*each, *key))
      each = RefPtr<Certificate>(joined.release());
  }
  keys.push_back(std::move(key));
}

int SystemCerts::Contents::add(KeyMaterial found) {
  const QuietErrors quiet;
  const std::size_t count = found.certificates.size() + found.keys.size();
  for (const RefPtr<Certificate>& certificate : found.certificates) addCertificate(*certificate);
  for (KeyPtr& key : found.keys) addKey(std::move(key));
  return static_cast<int>(count);
}

// ---- construction and filling
// ---------------------------------------------------------------------------------

SystemCerts::SystemCerts() : m_contents(std::make_unique<Contents>()) {}

SystemCerts::~SystemCerts() = default;

bool SystemCerts::addCertificate(Certificate& certificate) {
  return neverThrow(false, [&] {
    const QuietErrors quiet;
    m_contents->addCertificate(certificate);
    return true;
  });
}

int SystemCerts::addFromData(std::string_view bytes, const char* password, LogBase& log) {
  return neverThrow(0, [&] {
    KeyMaterial found = readKeyMaterial(bytes, password);
    logProblems(found.problems, Problems::asErrors, log);
    return m_contents->add(std::move(found));
  });
}

int SystemCerts::addMaterial(KeyMaterial found) {
  return neverThrow(0, [&] { return m_contents->add(std::move(found)); });
}

int SystemCerts::addFromFile(const char* path, const char* password, LogBase& log) {
  return neverThrow(0, [&] {
    const LogContextExitor context(log, "addFromFile", log.m_verboseLogging);
    DataBuffer bytes;
    const WipedAtEnd wiped(bytes);
    if (!loadCertificateFile(path, bytes, log)) return 0;
    const int added = addFromData(bytes.view(), password, log);
    if (added == 0) log.LogDataSb("path", viewOf(path));
    return added;
  });
}

int SystemCerts::addFromDirectory(const char* path, const char* password, LogBase& log) {
  return neverThrow(0, [&] {
    const LogContextExitor context(log, "addFromDirectory", log.m_verboseLogging);
    return addFilesAt(path, "No certificates or keys found", log, [&](std::string_view bytes, Problems how) {
      KeyMaterial found = readKeyMaterial(bytes, password);
      logProblems(found.problems, how, log);
      return m_contents->add(std::move(found));
    });
  });
}

int SystemCerts::addTrustAnchors(const char* path, LogBase& log) {
  return neverThrow(0, [&] {
    const LogContextExitor context(log, "addTrustAnchors", log.m_verboseLogging);
    return addFilesAt(path, "No trust anchors found", log, [&](std::string_view bytes, Problems how) {
      LogNull quiet;
      return addTrustAnchorsFromData(bytes, how == Problems::asErrors ? log : quiet);
    });
  });
}

int SystemCerts::addTrustAnchorsFromData(std::string_view bytes, LogBase& log) {
  return neverThrow(0, [&] {
    const KeyMaterial found = readKeyMaterial(bytes, nullptr);
    const auto add = [&](const RefPtr<Certificate>& anchor) { return m_contents->trust.addAnchor(*anchor); };
    const auto added = std::ranges::count_if(found.certificates, add);
    logProblems(found.problems, Problems::asErrors, log);
    if (added == 0 && found.problems.empty()) log.logError("No certificate usable as a trust anchor");
    return static_cast<int>(added);
  });
}

int SystemCerts::addHostTrustAnchors(LogBase& log) {
  return neverThrow(0, [&] {
    const LogContextExitor context(log, "addHostTrustAnchors", log.m_verboseLogging);
    const HostTrustPlaces places = hostTrustPlaces();
    LogNull quiet;
    int added = 0;
    for (const std::string& path : places.paths) {
      added += addTrustAnchors(path.c_str(), places.areAlternatives ? quiet : log);
      if (added > 0 && places.areAlternatives) break;
    }
    if (added == 0 && places.areAlternatives) log.logError("The host has no trust anchors in a usual place");
    return added;
  });
}

int SystemCerts::addRevocationLists(const char* path, LogBase& log) {
  return neverThrow(0, [&] {
    const LogContextExitor context(log, "addRevocationLists", log.m_verboseLogging);
    return addFilesAt(path, "No revocation lists found", log, [&](std::string_view bytes, Problems how) {
      const int added = m_contents->trust.addLists(bytes);
      if (added == 0) logProblems({"no revocation list"}, how, log);
      return added;
    });
  });
}

// ---- reading
// --------------------------------------------------------------------------------------------------

int SystemCerts::getNumCertificates() const noexcept {
  return static_cast<int>(m_contents->certificates.size());
}

Certificate* SystemCerts::getCertificate(int index) const noexcept {
  const bool inRange = index >= 0 && index < getNumCertificates();
  return inRange ? m_contents->certificates[static_cast<std::size_t>(index)].get() : nullptr;
}

bool SystemCerts::hasTrustAnchors() const noexcept { return m_contents->trust.hasAnchors(); }

const std::vector<RefPtr<Certificate>>& SystemCerts::trustAnchors() const noexcept {
  return m_contents->trust.anchors();
}

Certificate* SystemCerts::findByEmailAddr(const char* address, bool forEncryption, LogBase& log) {
  return neverThrow<Certificate*>(nullptr, [&] {
    const LogContextExitor context(log, "findByEmailAddr", log.m_verboseLogging);
    const CertificateUse use = forEncryption ? CertificateUse::encrypt : CertificateUse::sign;
    const std::int64_t when = now();
    Certificate* best = nullptr;
    for (const RefPtr<Certificate>& candidate : m_contents->certificates) {
      if (!candidate->isForAddress(viewOf(address))) continue;
      const char* reason = rejectionReason(*candidate, use, when);
      if (!reason && isRevoked(*candidate, m_contents->trust, m_contents->certificates, when))
        reason = "it was revoked";
      if (reason)
        logSkipped(*candidate, reason, log);
      else if (!best || candidate->notAfter() > best->notAfter())
        best = candidate.get();
    }
    return best;
  });
}

ChainVerdict SystemCerts::checkChain(const Certificate& certificate,
                                     const std::vector<RefPtr<Certificate>>& others, std::int64_t unixSeconds,
                                     std::optional<std::int64_t> then) const {
  ChainVerdict failed;
  failed.problem = "out of memory";
  return neverThrow(failed, [&] {
    const auto check = [&](std::int64_t at) {
      return m_contents->trust.check(certificate, m_contents->certificates, others, at, then);
    };
    ChainVerdict verdict = check(unixSeconds);
    if (then && !verdict.trustedThen) verdict.trustedThen = check(*then).trusted;
    return verdict;
  });
}

std::vector<RefPtr<Certificate>> SystemCerts::chainOf(const Certificate& certificate) const {
  return neverThrow(std::vector<RefPtr<Certificate>>(),
                    [&] { return m_contents->trust.chainOf(certificate, m_contents->certificates); });
}

}  // namespace mailtree
