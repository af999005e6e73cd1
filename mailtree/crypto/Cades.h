// crypto/Cades.h - what a signature is to be like, beyond what the operations' flags say.
#pragma once

namespace mailtree {

/// Options of a signature.
class _clsCades {
 public:
  /// RSA signatures in PSS (RFC 4056), the salt as long as the digest, instead of PKCS#1 v1.5. Other keys have
  /// one way to sign.
  bool m_rsaPss = false;
};

}  // namespace mailtree
