#include "mailtree/crypto/SystemCerts.h"

#include <tuple>

namespace mailtree {

bool SystemCerts::addCertificate(Certificate& certificate) {
  return neverThrow(false, [&] {
    Owned<CertificateHolder> holder(new CertificateHolder(certificate));
    if (!m_certificates.appendObject(holder.get())) return false;
    std::ignore = holder.release();
    return true;
  });
}

}  // namespace mailtree
