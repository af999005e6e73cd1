// crypto/CertificateReader.h - creates certificates and attaches private keys to them.
#pragma once

#include <memory>
#include <string_view>

#include "mailtree/crypto/Certificate.h"

namespace mailtree {

struct ReleaseKey {
  void operator()(NativeKey* key) const noexcept;
};
/// Owner of a private key that has no certificate yet.
using KeyPtr = std::unique_ptr<NativeKey, ReleaseKey>;

class CertificateReader {
 public:
  /// Reads the certificate at the beginning of the bytes and ignores what follows it (trust settings, a line
  /// break). Null when there is none.
  static Owned<Certificate> read(std::string_view der);
  /// The same certificate with its private key, which is shared; null when the key does not match.
  static Owned<Certificate> withKey(const Certificate& certificate, NativeKey& key);

 private:
  static Owned<Certificate> make(NativeCertificate* native, NativeKey* key);
};

}  // namespace mailtree
