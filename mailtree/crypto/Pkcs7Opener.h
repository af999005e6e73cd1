// crypto/Pkcs7Opener.h - reads the Cryptographic Message Syntax (RFC 5652): verifies, decrypts, unpacks.
//
//   Input      DER or BER bytes, as hostile as they come. A PEM armour is taken off.
//   Failure    Releases nothing: when a layer cannot be opened, or its tag is wrong, no byte of it gets out.
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
  /// @param layer  receives kind, signers, certificates, problem; `part`, `uncovered` and the signers'
  ///               addressMatches are the caller's.
  /// @param budget   what the message may still cost; without one, what a message of these bytes may.
  /// @return whether it could be read as a signature at all; the verdicts are in `layer`.
  static bool verifyDetached(std::string_view der, std::string_view content, SystemCerts& certs,
                             SecureLayer& layer, LoadBudget& budget, LogBase& log);
  static bool verifyDetached(std::string_view der, std::string_view content, SystemCerts& certs,
                             SecureLayer& layer, LogBase& log);

  /// Opens a layer of any kind: verifies and takes out a signed content, decrypts with a key held in `certs`,
  /// decompresses.
  /// @param content  receives the content, only when the result is true; replaced.
  /// @param budget   as above.
  /// @return whether the content was taken out. A signed content is given out whatever its signatures are worth:
  ///         the verdicts are in `layer`. False for certificates only, with `layer.certificates` filled.
  static bool open(std::string_view der, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                   LoadBudget& budget, LogBase& log);
  static bool open(std::string_view der, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                   LogBase& log);

  /// What kind of layer the bytes are, from their first fields; unknown for anything else.
  static LayerKind kindOf(std::string_view der) noexcept;
};

}  // namespace mailtree
