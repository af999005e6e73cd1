// crypto/Certificate.h - an X.509 certificate, with or without its private key, and lists of certificates.
//
//   Ownership  Shared by reference count; RefPtr<Certificate> is the owner to use.
//   Secrets    A private key is held by the cryptographic library, is never logged, and is wiped with the
//              last reference. Nothing here exports it.
//   Threads    Immutable once made; several threads may use the same certificate.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/XString.h"

namespace mailtree {

class LogBase;
struct NativeCertificate;  ///< The object of the cryptographic library; opaque outside crypto/*.cpp.
struct NativeKey;

/// What a certificate's key may be used for.
enum class CertificateUse { sign, encrypt };

class MAILTREE_API Certificate final : public RefCountedObject {
 public:
  /// Parses one DER certificate (RFC 5280); null when it is malformed or memory ran
  /// out. Uncounted: the first RefPtr owns it.
  static Certificate* createFromDer(std::string_view der, LogBase& log);

  /// The DER encoding.
  const DataBuffer& der() const noexcept { return m_der; }

  /// Subject and issuer as one line (RFC 2253 order, utf-8), replacing `out`. False when it is missing.
  bool getSubjectDN(XString& out, LogBase& log) const;
  bool getIssuerDN(XString& out, LogBase& log) const;
  /// Upper-case hexadecimal.
  const std::string& serialNumber() const noexcept { return m_serialNumber; }
  /// SHA-256 of the DER, lower-case hexadecimal: identifies the certificate.
  const std::string& fingerprint() const noexcept { return m_fingerprint; }
  /// Addresses of the subjectAltName (rfc822Name), then of the subject's emailAddress; as written.
  const std::vector<std::string>& emailAddresses() const noexcept { return m_emailAddresses; }
  /// Whether it is issued to this address; the local part is case-sensitive.
  bool isForAddress(std::string_view address) const noexcept;

  /// Validity in Unix seconds, both ends included.
  std::int64_t notBefore() const noexcept { return m_notBefore; }
  std::int64_t notAfter() const noexcept { return m_notAfter; }
  bool isValidAt(std::int64_t unixSeconds) const noexcept;
  /// Whether key usage and extended key usage, where present, allow it (RFC 8551,
  /// 4.4). Does not check the validity period.
  bool isFitFor(CertificateUse use) const noexcept;
  /// "RSA", "EC", "ED25519", ...
  const std::string& keyAlgorithm() const noexcept { return m_keyAlgorithm; }
  int keyBits() const noexcept { return m_keyBits; }
  bool hasPrivateKey() const noexcept { return m_key != nullptr; }
  /// Whether subject and issuer are the same.
  bool isSelfIssued() const noexcept { return m_isSelfIssued; }

  /// For the files of crypto/. native() is never null; nativeKey() is null without a private key.
  NativeCertificate* native() const noexcept { return m_native; }
  NativeKey* nativeKey() const noexcept { return m_key; }

 private:
  friend class CertificateReader;
  Certificate() = default;
  ~Certificate() override;

  DataBuffer m_der;
  NativeCertificate* m_native = nullptr;
  NativeKey* m_key = nullptr;
  std::string m_serialNumber;
  std::string m_fingerprint;
  std::vector<std::string> m_emailAddresses;
  std::string m_keyAlgorithm;
  std::int64_t m_notBefore = 0;
  std::int64_t m_notAfter = 0;
  int m_keyBits = 0;
  bool m_isSelfIssued = false;
};

/// Holds one reference to a certificate. Arrays of objects can own it.
class MAILTREE_API CertificateHolder final : public SorvikObject {
 public:
  explicit CertificateHolder(Certificate& certificate) noexcept : m_certificate(&certificate) {}
  /// Borrowed; never null.
  Certificate* getCert() const noexcept { return m_certificate.get(); }

  /// A new holder, owned by the caller; null for a null certificate or when memory ran out.
  static CertificateHolder* createFromCert(Certificate* certificate, LogBase& log);
  /// Appends a holder. False for a null certificate or when memory ran out.
  static bool appendNewCertHolder(Certificate* certificate, ExtPtrArray& holders, LogBase& log);
  /// Certificate of the index-th holder in a list of holders; null when out of range.
  static Certificate* getNthCert(const ExtPtrArray& holders, int index) noexcept;
  static Certificate* getNthCert(const ExtPtrArray& holders, int index, LogBase& log) noexcept;
  /// Appends to `to` a new holder for every certificate in `from`. False when memory ran out.
  static bool copyCertHolders(const ExtPtrArray& from, ExtPtrArray& to);

 private:
  RefPtr<Certificate> m_certificate;
};

}  // namespace mailtree
