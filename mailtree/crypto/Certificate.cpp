#include "mailtree/crypto/Certificate.h"

#include <tuple>

namespace mailtree {

Certificate* CertificateHolder::getNthCert(const ExtPtrArray& holders, int index) noexcept {
  const auto* holder = holders.at<CertificateHolder>(index);
  return holder ? holder->getCert() : nullptr;
}

bool CertificateHolder::copyCertHolders(const ExtPtrArray& from, ExtPtrArray& to) {
  return neverThrow(false, [&] {
    for (int i = 0; i < from.getSize(); ++i) {
      Certificate* certificate = getNthCert(from, i);
      if (!certificate) continue;
      Owned<CertificateHolder> copy(new CertificateHolder(*certificate));
      if (!to.appendObject(copy.get())) return false;
      std::ignore = copy.release();
    }
    return true;
  });
}

}  // namespace mailtree
