#include "cli/secure/keys.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/base/Log.h"
#include "mailtree/crypto/Wipe.h"

namespace mailtree::cli {
namespace {

constexpr const char* kGroup = "Certificates and keys";

/// Whether a file has an encrypted PEM block. The bytes read are wiped.
bool holdsEncryptedPem(const std::string& path) {
  DataBuffer bytes;
  const WipedAtEnd wiped(bytes);
  LogNull log;
  if (!bytes.loadFileUtf8(path.c_str(), log)) return false;
  return contains(bytes.view(), "-----BEGIN") && contains(bytes.view(), "ENCRYPTED");
}

/// Adds files to a store, each with the password that opens the most of it.
class KeyReader {
 public:
  KeyReader(Keys& keys, Passwords& passwords)
      : m_keys(keys), m_passwords(passwords), m_mayAsk(passwords.all().empty()) {}

  Exit addFile(const std::string& path, bool isPkcs12) {
    const bool isLocked = isPkcs12 || holdsEncryptedPem(path);
    if (isLocked && m_passwords.all().empty()) m_passwords.ask(path);
    Opening best = bestOpening(path);
    // The password was mistyped, or belongs to an earlier file.
    if (best.count == 0 && isLocked && m_mayAsk && m_passwords.ask(path)) best = bestOpening(path);
    if (best.count == 0) return fail(path, isLocked && m_passwords.all().empty());
    if (!best.mainCertificate.empty()) m_keys.named.push_back(best.mainCertificate);
    LogNull log;
    m_keys.store.addFromFile(path.c_str(), best.password, log);
    return Exit::fine;
  }

  Exit addFolder(const std::string& path) {
    m_log.clear();
    if (std::error_code error; !std::filesystem::is_directory(path, error)) {
      reportError(path, error ? error.message() : "is not a folder");
      return Exit::unreadable;
    }
    int count = m_keys.store.addFromDirectory(path.c_str(), nullptr, m_log);
    for (const Secret& password : m_passwords.all())
      count += m_keys.store.addFromDirectory(path.c_str(), password.text(), m_log);
    // Certificates already added from a file are not added again.
    const std::string problem = lastError(m_log, "");
    if (count > 0 || problem.empty()) return Exit::fine;
    reportError(path, problem);
    return Exit::unreadable;
  }

 private:
  /// What one password opens in a file.
  struct Opening {
    int count = 0;
    const char* password = nullptr;
    std::string
        mainCertificate;  ///< Fingerprint of the first certificate with a private key, else of the first.
  };

  static std::string mainCertificateIn(const SystemCerts& store) {
    for (int i = 0; i < store.getNumCertificates(); ++i)
      if (store.getCertificate(i)->hasPrivateKey()) return store.getCertificate(i)->fingerprint();
    return store.getNumCertificates() > 0 ? store.getCertificate(0)->fingerprint() : std::string();
  }

  Opening tryOpening(const std::string& path, const char* password) {
    SystemCerts scratch;
    const int count = scratch.addFromFile(path.c_str(), password, m_log);
    return {count, password, mainCertificateIn(scratch)};
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
    std::string problem = lastError(m_log, "contains no certificate or key");
    if (needsPassword)
      problem += " (give a password with --password-file, --password-fd or MAILTREE_PASSWORD)";
    reportError(path, problem);
    return Exit::unreadable;
  }

  Keys& m_keys;
  Passwords& m_passwords;
  bool m_mayAsk;  ///< Only when the options give no passwords.
  LogMemory m_log;
};

using AddFunction = int (SystemCerts::*)(const char*, LogBase&);

Exit addAll(const std::vector<std::string>& paths, SystemCerts& store, AddFunction adding,
            const char* otherwise) {
  for (const std::string& path : paths) {
    LogMemory log;
    if ((store.*adding)(path.c_str(), log) > 0) continue;
    reportError(path, lastError(log, otherwise));
    return Exit::unreadable;
  }
  return Exit::fine;
}

}  // namespace

void addCertificateOptions(Verb verb, KeyOptions& options) {
  verb.addRepeated(
          "--cert", options.certs,
          "Certificate file (PEM, DER or PKCS#7); the first certificate is used, others are its chain")
      .kind(kFile)
      .group(kGroup);
  verb.addRepeated("--certs", options.folders, "Folder of certificate and key files")
      .kind(kFolder)
      .group(kGroup);
}

void addPrivateKeyOptions(Verb verb, KeyOptions& options) {
  verb.addRepeated("--key", options.keys, "Private key file (PEM or DER)").kind(kFile).group(kGroup);
  verb.addRepeated("--p12", options.pkcs12, "PKCS#12 file: certificate and private key in one")
      .kind(kFile)
      .group(kGroup);
  addPasswordOptions(verb, options.passwords);
}

void addTrustOptions(Verb verb, KeyOptions& options) {
  verb.addRepeated("--trust", options.trust, "Trust anchors: a file, or a folder of files")
      .kind(kFile)
      .group(kGroup);
  verb.addRepeated("--crl", options.revoked, "Revocation list file").kind(kFile).group(kGroup);
}

void addReadingKeyOptions(Verb verb, KeyOptions& options) {
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

StreamSettings streamWith(const KeyOptions& keys, StreamSettings settings) {
  if (keys.isAny()) settings.jobs = 1;
  return settings;
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
      addAll(options.trust, keys.store, &SystemCerts::addTrustAnchors, "contains no certificates");
  if (result != Exit::fine) return result;
  return addAll(options.revoked, keys.store, &SystemCerts::addRevocationLists, "contains no revocation list");
}

}  // namespace mailtree::cli
