// crypto/SystemCerts.h - the certificates, keys, trust anchors and revocation lists that a message is signed,
// encrypted, checked and opened with. In memory; nothing of the host's own store is looked at.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree {

class LogBase;

/// What became of the way from a certificate to a trust anchor.
struct ChainVerdict {
  bool trusted = false;
  bool revoked = false;  ///< By a revocation list held here.
  std::string problem;   ///< Why it is not trusted, in words; empty when it is and nothing is to be noted.
  bool trustedThen = false;             ///< At the other time asked about.
  bool isTrustChecked = false;          ///< Anchors are held.
  bool isRevocationChecked = false;     ///< The issuer's list is held, and was found to be the issuer's.
  std::vector<std::string> weaknesses;  ///< As SignerVerdict has them; of what was found of the path.
};

/// A store in memory. Borrowed by every loading and writing operation.
///
///   Failure  Adding says how many certificates and keys (or lists) were read, those held before included; 0,
///            with the reason logged, when there were none. What was read beside an unreadable piece stays, and
///            that piece is logged.
///   Limits   A file of more than 16 MiB is refused.
///   Threads  Not to be changed while another thread uses it.
class SystemCerts {
 public:
  SystemCerts();
  SystemCerts(const SystemCerts&) = delete;
  SystemCerts& operator=(const SystemCerts&) = delete;
  ~SystemCerts();

  /// Keeps a reference; one that is held already is not added twice, but one with a private key takes the place
  /// of the same one without. False when memory ran out.
  bool addCertificate(Certificate& certificate);
  /// Certificates and private keys in PEM (several in one text), DER, PKCS#12 or a PKCS#7 bundle, found out by
  /// looking. A key joins the certificate it fits, whichever came first.
  /// @param password  utf-8, of PKCS#12 files and encrypted keys; null: none. What needs none is read whatever
  ///                  password is given.
  int addFromData(std::string_view bytes, const char* password, LogBase& log);
  int addFromFile(const char* path, const char* password, LogBase& log);
  /// Every file of the folder that holds certificates or keys, in the order of their names; others are passed
  /// over, the reason being logged as information. Not recursive.
  int addFromDirectory(const char* path, const char* password, LogBase& log);
  /// Trust anchors, from a file or every file of a folder. An anchor need not be self-signed.
  int addTrustAnchors(const char* path, LogBase& log);
  int addTrustAnchorsFromData(std::string_view bytes, LogBase& log);
  /// Revocation lists (PEM or DER). With any held, a chain whose issuers have none among them is not revoked.
  int addRevocationLists(const char* path, LogBase& log);

  int getNumCertificates() const noexcept;
  /// Borrowed until the store changes; null when out of range.
  Certificate* getCertificate(int index) const noexcept;
  bool hasTrustAnchors() const noexcept;
  /// Those given as trust anchors; getCertificate() does not give them.
  const std::vector<RefPtr<Certificate>>& trustAnchors() const noexcept;

  /// The best certificate for an address: the one that is valid longest, the first one held among equals.
  /// Letter case counts in the local part only.
  /// @param forEncryption  true: one fit to encrypt to; false: one fit to sign, with its private key.
  /// @return borrowed; null when there is none. Expired ones, ones not fit for the use, and ones that a
  ///         list held here revokes are never given.
  Certificate* findByEmailAddr(const char* address, bool forEncryption, LogBase& log);

  /// Whether a way leads from the certificate to a trust anchor, at a time, for mail (S/MIME signing).
  /// @param others  certificates that came with the message; they may help but are not trusted.
  /// @param then    another time to ask about: seldom more work, for most often the same way was open then.
  ///
  /// The authorities on the way must be such, for mail; what the certificate itself may be used for is another
  /// question (Certificate::isFitFor). Weak algorithms are named, and make nothing untrusted. A revoked certificate
  /// is so at any time asked about: only its own signer says when a signature was made. A list whose next issue is
  /// overdue still revokes; the chain stays trusted, as without a list, and `problem` tells. Where no way leads to
  /// an anchor a revocation is found only if the authorities are all held here: what came along is then not looked
  /// into any further.
  /// More than ten authorities below the anchor are too many.
  ChainVerdict checkChain(const Certificate& certificate, const std::vector<RefPtr<Certificate>>& others,
                          std::int64_t unixSeconds, std::optional<std::int64_t> then = {}) const;
  /// The certificates above this one, nearest first, as far as they are held here; the anchor last, when found.
  std::vector<RefPtr<Certificate>> chainOf(const Certificate& certificate) const;

 private:
  struct Held;

  std::unique_ptr<Held> m_held;
};

}  // namespace mailtree
