#include "cli/secure/keys.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/complaints.h"
#include "mailtree/crypto/Wipe.h"

namespace mailtree::cli {
namespace {

constexpr const char* kGroup = "Certificates and keys";

/// Whether a file holds a PEM block that says of itself that it is encrypted. The look at it leaves nothing behind.
bool holdsEncryptedPem(const std::string& path) {
  DataBuffer bytes;
  const WipedAtEnd wiped(bytes);
  LogNull log;
  if (!bytes.loadFileUtf8(path.c_str(), log)) return false;
  return contains(bytes.view(), "-----BEGIN") && contains(bytes.view(), "ENCRYPTED");
}

/// Adds files to a store, each with the password that opens most of it.
class KeyReader {
 public:
  KeyReader(Keys& keys, Passwords& passwords)
      : m_keys(keys), m_passwords(passwords), m_mayAsk(passwords.all().empty()) {}

  Exit addFile(const std::string& path, bool isPkcs12) {
    const bool isLocked = isPkcs12 || holdsEncryptedPem(path);
    if (isLocked && m_passwords.all().empty()) m_passwords.ask(path);
    Opening best = bestOpening(path);
    // Mistyped, or the password of an earlier file is not that of this one.
    if (best.count == 0 && isLocked && m_mayAsk && m_passwords.ask(path)) best = bestOpening(path);
    if (best.count == 0) return fail(path, isLocked && m_passwords.all().empty());
    if (!best.meant.empty()) m_keys.named.push_back(best.meant);
    LogNull log;
    m_keys.store.addFromFile(path.c_str(), best.password, log);
    return Exit::fine;
  }

  Exit addFolder(const std::string& path) {
    m_log.clear();
    if (std::error_code error; !std::filesystem::is_directory(path, error)) {
      complain(path, error ? error.message() : "is no folder");
      return Exit::unreadable;
    }
    int count = m_keys.store.addFromDirectory(path.c_str(), nullptr, m_log);
    for (const Secret& password : m_passwords.all())
      count += m_keys.store.addFromDirectory(path.c_str(), password.text(), m_log);
    // What was named as a file already is not added again.
    const std::string problem = lastError(m_log, "");
    if (count > 0 || problem.empty()) return Exit::fine;
    complain(path, problem);
    return Exit::unreadable;
  }

 private:
  /// What a file gave with a password.
  struct Opening {
    int count = 0;
    const char* password = nullptr;
    std::string meant;  ///< Fingerprint of the first certificate, or better the first with a private key.
  };

  static std::string meantIn(const SystemCerts& store) {
    for (int i = 0; i < store.getNumCertificates(); ++i)
      if (store.getCertificate(i)->hasPrivateKey()) return store.getCertificate(i)->fingerprint();
    return store.getNumCertificates() > 0 ? store.getCertificate(0)->fingerprint() : std::string();
  }

  Opening tryOpening(const std::string& path, const char* password) {
    SystemCerts scratch;
    const int count = scratch.addFromFile(path.c_str(), password, m_log);
    return {count, password, meantIn(scratch)};
  }

  Opening bestOpening(const std::string& path) {
    m_log.clear();
    Opening best = tryOpening(path, nullptr);
    for (const Secret& password : m_passwords.all()) {
      Opening next = tryOpening(path, password.text());
      if (next.count > best.count) best = std::move(next);
    }
    return best;
  }

  Exit fail(const std::string& path, bool needsPassword) {
    std::string problem = lastError(m_log, "holds no certificate and no key");
    if (needsPassword) problem += " (--password-file, --password-fd or MAILTREE_PASSWORD give a password)";
    complain(path, problem);
    return Exit::unreadable;
  }

  Keys& m_keys;
  Passwords& m_passwords;
  bool m_mayAsk;  ///< Whoever gave passwords is not asked for more.
  LogMemory m_log;
};

using Adding = int (SystemCerts::*)(const char*, LogBase&);

Exit addAll(const std::vector<std::string>& paths, SystemCerts& store, Adding adding, const char* otherwise) {
  for (const std::string& path : paths) {
    LogMemory log;
    if ((store.*adding)(path.c_str(), log) > 0) continue;
    complain(path, lastError(log, otherwise));
    return Exit::unreadable;
  }
  return Exit::fine;
}

}  // namespace

void addCertificateOptions(CLI::App& verb, KeyOptions& options) {
  addRepeated(verb, "--cert", options.certs,
              "Certificate file (PEM, DER or PKCS#7); its first is the one meant")
      ->group(kGroup);
  addRepeated(verb, "--certs", options.folders, "Folder of certificate and key files")->group(kGroup);
}

void addPrivateKeyOptions(CLI::App& verb, KeyOptions& options) {
  addRepeated(verb, "--key", options.keys, "Private key file (PEM or DER)")->group(kGroup);
  addRepeated(verb, "--p12", options.pkcs12, "PKCS#12 file: certificate and private key in one")
      ->group(kGroup);
  addPasswordOptions(verb, options.passwords);
}

void addTrustOptions(CLI::App& verb, KeyOptions& options) {
  addRepeated(verb, "--trust", options.trust, "Trust anchors: a file, or a folder of files")->group(kGroup);
  addRepeated(verb, "--crl", options.revoked, "Revocation list file")->group(kGroup);
}

void addReadingKeyOptions(CLI::App& verb, KeyOptions& options) {
  addCertificateOptions(verb, options);
  addPrivateKeyOptions(verb, options);
  addTrustOptions(verb, options);
}

std::vector<Certificate*> Keys::certificates() const {
  std::vector<Certificate*> found;
  for (int i = 0; i < store.getNumCertificates(); ++i) {
    Certificate* const certificate = store.getCertificate(i);
    if (std::ranges::find(named, certificate->fingerprint()) != named.end()) found.push_back(certificate);
  }
  return found;
}

std::vector<Certificate*> Keys::withPrivateKey() const {
  std::vector<Certificate*> found = certificates();
  std::erase_if(found, [](const Certificate* certificate) { return !certificate->hasPrivateKey(); });
  return found;
}

Exit readKeys(const KeyOptions& options, Keys& keys) {
  Passwords passwords;
  if (const Exit result = passwords.read(options.passwords); result != Exit::fine) return result;
  KeyReader reader(keys, passwords);
  for (const auto* const paths : {&options.certs, &options.keys, &options.pkcs12})
    for (const std::string& path : *paths)
      if (const Exit result = reader.addFile(path, paths == &options.pkcs12); result != Exit::fine)
        return result;
  for (const std::string& folder : options.folders)
    if (const Exit result = reader.addFolder(folder); result != Exit::fine) return result;
  const Exit result =
      addAll(options.trust, keys.store, &SystemCerts::addTrustAnchors, "holds no certificates");
  if (result != Exit::fine) return result;
  return addAll(options.revoked, keys.store, &SystemCerts::addRevocationLists, "holds no revocation list");
}

}  // namespace mailtree::cli
