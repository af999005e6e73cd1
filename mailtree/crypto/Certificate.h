// crypto/Certificate.h - an X.509 certificate, and lists of certificates.
#pragma once

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Object.h"

namespace mailtree {

/// One certificate, shared by reference count.
class Certificate final : public RefCountedObject {
 public:
  /// The certificate's DER encoding; empty for one that was never loaded.
  const DataBuffer& der() const noexcept { return m_der; }
  DataBuffer& der() noexcept { return m_der; }

 private:
  DataBuffer m_der;
};

/// Keeps one reference to a certificate, so that arrays can own it.
class CertificateHolder final : public SorvikObject {
 public:
  explicit CertificateHolder(Certificate& certificate) noexcept : m_certificate(&certificate) {}
  /// Borrowed; never null.
  Certificate* getCert() const noexcept { return m_certificate.get(); }
  /// Certificate of the index-th holder in a list of holders; null when out of range.
  static Certificate* getNthCert(const ExtPtrArray& holders, int index) noexcept;
  /// Appends to `to` a holder of its own for every certificate in `from`. False when memory ran out.
  static bool copyCertHolders(const ExtPtrArray& from, ExtPtrArray& to);

 private:
  RefPtr<Certificate> m_certificate;
};

}  // namespace mailtree
