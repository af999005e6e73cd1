// crypto/Cades.h - signature options beyond the flags of the operations.
#pragma once

namespace mailtree {

/// Options of a signature.
class _clsCades {
 public:
  /// RSA signatures with PSS (RFC 4056), the salt as long as the digest, instead of PKCS#1 v1.5. Other keys
  /// have only one scheme.
  bool m_rsaPss = false;
};

}  // namespace mailtree
