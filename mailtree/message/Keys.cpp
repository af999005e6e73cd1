// message/Keys.cpp - reading certificates, keys, trust anchors and revocation lists.
#include "mailtree/message/Keys.h"

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/CertificateFiles.h"
#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/crypto/Wipe.h"
#include "mailtree/message/internal.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;

std::chrono::sys_seconds timeOf(std::int64_t unixSeconds) {
  return std::chrono::sys_seconds(std::chrono::seconds(unixSeconds));
}

std::string subjectOf(const Certificate& certificate) {
  XString subject;
  LogNull log;
  certificate.getSubjectDN(subject, log);
  return std::string(subject.view());
}

std::string issuerOf(const Certificate& certificate) {
  XString issuer;
  LogNull log;
  certificate.getIssuerDN(issuer, log);
  return std::string(issuer.view());
}

/// No password is null: an empty one is only tried where a file may mean either.
const char* passwordIn(const std::string& password) { return password.empty() ? nullptr : password.c_str(); }

Result<void> addMaterial(SystemCerts& store, std::string_view bytes, const std::string& password,
                         const std::string& path) {
  KeyMaterial found = readKeyMaterial(bytes, passwordIn(password));
  const std::string problem = found.problems.empty() ? std::string() : found.problems.front();
  if (found.isLocked) return Error{ErrorCode::noKey, problem, path};
  if (found.isEmpty()) return Error{ErrorCode::noKey, "holds no certificate or key: " + problem, path};
  if (store.addMaterial(std::move(found)) == 0) return noMemory();
  return {};
}

/// @param count  what adding a file or folder returned.
Result<void> added(int count, const LogMemory& log, const std::string& path) {
  if (count > 0) return {};
  std::error_code unknown;
  const ErrorCode code = fs::exists(path, unknown) ? ErrorCode::noKey : ErrorCode::unreadable;
  return Error{code, lastError(log, kNoMemory), path};
}

std::vector<CertificateInfo> certificatesWhere(const SystemCerts& store, bool needsPrivateKey) {
  std::vector<CertificateInfo> found;
  for (int i = 0; i < store.getNumCertificates(); ++i)
    if (const Certificate& each = *store.getCertificate(i); each.hasPrivateKey() || !needsPrivateKey)
      found.push_back(infoOf(each));
  return found;
}

}  // namespace

CertificateInfo infoOf(const Certificate& certificate) {
  return {.subject = subjectOf(certificate),
          .issuer = issuerOf(certificate),
          .serialNumber = certificate.serialNumber(),
          .addresses = certificate.emailAddresses(),
          .validFrom = timeOf(certificate.notBefore()),
          .validUntil = timeOf(certificate.notAfter()),
          .keyAlgorithm = certificate.keyAlgorithm(),
          .keyBits = certificate.keyBits(),
          .fingerprint = certificate.fingerprint(),
          .hasPrivateKey = certificate.hasPrivateKey()};
}

Keys::Keys() : m_store(std::make_unique<SystemCerts>()) {}
Keys::Keys(Keys&&) noexcept = default;
Keys& Keys::operator=(Keys&&) noexcept = default;
Keys::~Keys() = default;

Result<void> Keys::addFile(const std::string& path, const std::string& password) {
  DataBuffer bytes;
  const WipedAtEnd wiped(bytes);
  LogMemory log;
  if (!loadCertificateFile(path.c_str(), bytes, log))
    return Error{ErrorCode::unreadable, lastError(log, "cannot be read"), path};
  return addMaterial(*m_store, bytes.view(), password, path);
}

Result<void> Keys::addData(std::string_view bytes, const std::string& password) {
  return addMaterial(*m_store, bytes, password, {});
}

Result<void> Keys::addFolder(const std::string& path, const std::string& password) {
  std::error_code error;
  if (!fs::is_directory(path, error))
    return Error{ErrorCode::unreadable, error ? error.message() : "is not a folder", path};
  LogMemory log;
  return added(m_store->addFromDirectory(path.c_str(), passwordIn(password), log), log, path);
}

Result<void> Keys::addTrust(const std::string& path) {
  LogMemory log;
  return added(m_store->addTrustAnchors(path.c_str(), log), log, path);
}

Result<void> Keys::addSystemTrust() {
  LogMemory log;
  return added(m_store->addHostTrustAnchors(log), log, {});
}

Result<void> Keys::addRevocationList(const std::string& path) {
  LogMemory log;
  return added(m_store->addRevocationLists(path.c_str(), log), log, path);
}

std::vector<CertificateInfo> Keys::identities() const { return certificatesWhere(*m_store, true); }
std::vector<CertificateInfo> Keys::certificates() const { return certificatesWhere(*m_store, false); }
bool Keys::hasTrust() const { return m_store->hasTrustAnchors(); }
SystemCerts& Keys::systemCerts() const { return *m_store; }

}  // namespace mailtree
