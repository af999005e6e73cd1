// crypto/Pkcs7Opener.h - reads the Cryptographic Message Syntax (RFC 5652): verifies, decrypts, decompresses.
//
//   Input      DER or BER bytes from any source, hostile ones included. PEM armour is removed.
//   Failure    Releases nothing: when a layer cannot be opened, or its tag is
//              wrong, no byte of its content gets out.
#pragma once

#include <string_view>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/LoadBudget.h"
#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

class LogBase;

class Pkcs7Opener {
 public:
  /// Verifies a detached signature over the bytes as received.
  /// @param layer  receives kind, signers, certificates, problem; the caller sets `part`, `uncovered`
  ///               and the signers' addressMatches.
  /// @param budget   the remaining budget of the message; without one, that of a message of this size.
  /// @return whether it could be read as a signature at all; the verdicts are in `layer`.
  static bool verifyDetached(std::string_view der, std::string_view content, SystemCerts& certs,
                             SecureLayer& layer, LoadBudget& budget, LogBase& log);
  static bool verifyDetached(std::string_view der, std::string_view content, SystemCerts& certs,
                             SecureLayer& layer, LogBase& log);

  /// Opens a layer of any kind: verifies and extracts a signed content, decrypts with a key
  /// in `certs`, decompresses.
  /// @param content  receives the content, only when the result is true; replaced.
  /// @param budget   as above.
  /// @return whether the content was extracted. A signed content is released even if its signatures are
  ///   invalid: the verdicts are in `layer`. False for certificates only, with `layer.certificates` filled.
  static bool open(std::string_view der, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                   LoadBudget& budget, LogBase& log);
  static bool open(std::string_view der, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                   LogBase& log);

  /// The kind of layer, from the first fields of the bytes; unknown for anything else.
  static LayerKind kindOf(std::string_view der) noexcept;
};

}  // namespace mailtree
