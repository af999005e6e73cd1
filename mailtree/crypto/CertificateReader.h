// crypto/CertificateReader.h - makes certificates, and joins private keys to them.
#pragma once

#include <memory>
#include <string_view>

#include "mailtree/crypto/Certificate.h"

namespace mailtree {

struct ReleaseKey {
  void operator()(NativeKey* key) const noexcept;
};
/// Owner of a private key that no certificate has yet.
using KeyPtr = std::unique_ptr<NativeKey, ReleaseKey>;

class CertificateReader {
 public:
  /// Reads the certificate that the bytes begin with; what follows it (trust settings, a line break) is left
  /// aside. Null when they begin with none.
  static Owned<Certificate> read(std::string_view der);
  /// The same certificate with its private key, which is shared; null when the key is another's.
  static Owned<Certificate> withKey(const Certificate& certificate, NativeKey& key);

 private:
  static Owned<Certificate> make(NativeCertificate* native, NativeKey* key);
};

}  // namespace mailtree
