// message/Keys.h - identities, certificates, trust anchors and revocation lists.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/message/Result.h"

namespace mailtree {

class SystemCerts;

/// What is known about a certificate (RFC 5280).
struct CertificateInfo {
  std::string subject;                 ///< Distinguished name.
  std::string issuer;                  ///< Distinguished name.
  std::string serialNumber;            ///< Hexadecimal.
  std::vector<std::string> addresses;  ///< Email addresses it is issued to.
  std::chrono::sys_seconds validFrom, validUntil;
  std::string keyAlgorithm;  ///< "RSA", "EC", "ED25519", ...
  int keyBits = 0;
  std::string fingerprint;  ///< SHA-256 of the certificate, hexadecimal.
  bool hasPrivateKey = false;
};

/// The keys that messages are opened, verified, signed and encrypted with. In memory only, and wiped at the
/// end. Not to be changed while another thread uses it.
class MAILTREE_API Keys {
 public:
  Keys();
  Keys(Keys&&) noexcept;
  Keys& operator=(Keys&&) noexcept;
  ~Keys();

  /// Adds the certificates and private keys of a file: PEM, DER, PKCS#12 or PKCS#7, found out by its content.
  /// A key joins the certificate it belongs to, in either order. noKey when the password does not open it, or
  /// when there is nothing in it.
  Result<void> addFile(const std::string& path, const std::string& password = {});
  /// The same from bytes.
  Result<void> addData(std::string_view bytes, const std::string& password = {});
  /// Every file of a folder that holds certificates or keys; other files, and those that the password does
  /// not open, are skipped. Not recursive. noKey when nothing was found.
  Result<void> addFolder(const std::string& path, const std::string& password = {});

  /// Trust anchors, from a file or every file of a folder. Without any, no chain is checked.
  Result<void> addTrust(const std::string& path);
  /// The anchors that the host trusts: of SSL_CERT_FILE and SSL_CERT_DIR when set, else of the usual places.
  Result<void> addSystemTrust();
  /// A certificate revocation list (PEM or DER). Once there is one, chains are checked for revocation.
  Result<void> addRevocationList(const std::string& path);

  std::vector<CertificateInfo> identities() const;    ///< Certificates with their private key.
  std::vector<CertificateInfo> certificates() const;  ///< All, identities included; no trust anchors.
  bool hasTrust() const;                              ///< Whether there are trust anchors.

  /// The store underneath, borrowed.
  SystemCerts& systemCerts() const;

 private:
  std::unique_ptr<SystemCerts> m_store;
};

}  // namespace mailtree
