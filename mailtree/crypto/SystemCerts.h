// crypto/SystemCerts.h - the certificates, keys, trust anchors and revocation lists to sign, encrypt, verify
// and decrypt messages with. In memory; the host's own store is used only when asked for.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Export.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree {

class LogBase;
struct KeyMaterial;

/// The result of validating the certification path of a certificate.
struct ChainVerdict {
  bool trusted = false;
  bool revoked = false;                 ///< By a revocation list in the store.
  std::string problem;                  ///< Why it is not trusted, or a note when it is; mostly empty then.
  bool trustedThen = false;             ///< At the other time asked about.
  bool isTrustChecked = false;          ///< The store has trust anchors.
  bool isRevocationChecked = false;     ///< The store has the issuer's list, verified as the issuer's.
  std::vector<std::string> weaknesses;  ///< As in SignerVerdict; of the part of the path that was found.
};

/// A store in memory. Borrowed by every loading and writing operation.
///
///   Failure  Adding returns the number of certificates and keys (or lists) read, those already
///            in the store included; 0, with the reason logged, when there were none. An
///            unreadable item is logged; the others stay.
///   Limits   A file of more than 16 MiB is refused.
///   Threads  Must not be changed while another thread uses it.
class MAILTREE_API SystemCerts {
 public:
  SystemCerts();
  SystemCerts(const SystemCerts&) = delete;
  SystemCerts& operator=(const SystemCerts&) = delete;
  ~SystemCerts();

  /// Adds a reference. A certificate already in the store is not added twice, but one with a private key
  /// replaces the same one without. False when memory ran out.
  bool addCertificate(Certificate& certificate);
  /// Certificates and private keys in PEM (several in one text), DER, PKCS#12 or a PKCS#7 bundle; the format
  /// is detected. A key joins the certificate it matches, in either order.
  /// @param password  utf-8, of PKCS#12 files and encrypted keys; null: none. Unencrypted
  ///                  items are read with any password.
  int addFromData(std::string_view bytes, const char* password, LogBase& log);
  int addFromFile(const char* path, const char* password, LogBase& log);
  /// What was read from a file before.
  int addMaterial(KeyMaterial found);
  /// Every file of the folder that holds certificates or keys, sorted by name; others are skipped, with the
  /// reason logged as information. Not recursive.
  int addFromDirectory(const char* path, const char* password, LogBase& log);
  /// Trust anchors, from a file or every file of a folder. An anchor need not be self-signed.
  int addTrustAnchors(const char* path, LogBase& log);
  int addTrustAnchorsFromData(std::string_view bytes, LogBase& log);
  /// The anchors that the host trusts: of SSL_CERT_FILE and SSL_CERT_DIR when one of them is set, else of the
  /// first usual place that has any.
  int addHostTrustAnchors(LogBase& log);
  /// Revocation lists (PEM or DER). Once there are any, a chain whose issuers have no
  /// list counts as not revoked.
  int addRevocationLists(const char* path, LogBase& log);

  int getNumCertificates() const noexcept;
  /// Borrowed until the store changes; null when out of range.
  Certificate* getCertificate(int index) const noexcept;
  bool hasTrustAnchors() const noexcept;
  /// Those given as trust anchors; getCertificate() does not return them.
  const std::vector<RefPtr<Certificate>>& trustAnchors() const noexcept;

  /// The best certificate for an address: the one that is valid longest, the first added among equals. The
  /// local part is case-sensitive.
  /// @param forEncryption  true: one usable for encryption; false: one usable for
  ///                       signing, with its private key.
  /// @return borrowed; null when there is none. Never one that is expired, revoked by a list in the store,
  ///   or not allowed for the use.
  Certificate* findByEmailAddr(const char* address, bool forEncryption, LogBase& log);

  /// Whether there is a certification path from the certificate to a trust anchor,
  /// at a time, for mail (S/MIME signing).
  /// @param others  certificates that came with the message; they may be on the path but are not trusted.
  /// @param then    another time to check: rarely more work, because usually the same path was valid then.
  ///
  /// The authorities on the path must be authorities for mail. The allowed use of the certificate itself is
  /// a separate question (Certificate::isFitFor). Weak algorithms are reported but do not affect trust. A
  /// revoked certificate counts as revoked at any time: only its own signer claims when a signature was
  /// made. A list past its next update still revokes; the chain stays trusted, as without a list, and
  /// `problem` says so. Without a path to an anchor, a revocation is found only if all authorities are in
  /// the store: certificates from the message are then not examined further. More than ten authorities below
  /// the anchor are too many.
  ChainVerdict checkChain(const Certificate& certificate, const std::vector<RefPtr<Certificate>>& others,
                          std::int64_t unixSeconds, std::optional<std::int64_t> then = {}) const;
  /// The certificates above this one, nearest first, as far as they are in the
  /// store; the trust anchor last, when found.
  std::vector<RefPtr<Certificate>> chainOf(const Certificate& certificate) const;

 private:
  struct Contents;

  std::unique_ptr<Contents> m_contents;
};

}  // namespace mailtree
