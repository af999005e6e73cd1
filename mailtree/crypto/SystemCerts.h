// crypto/SystemCerts.h - the certificates a message may be checked and opened with.
#pragma once

#include "mailtree/base/Containers.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree {

/// A store of certificates in memory. Borrowed by every loading operation.
class SystemCerts {
 public:
  /// Keeps a reference; false when memory ran out.
  bool addCertificate(Certificate& certificate);
  int getNumCertificates() const noexcept { return m_certificates.getSize(); }

 private:
  ExtPtrArray m_certificates;
};

}  // namespace mailtree
