// cli/secure/opening.h - an encrypted message made a readable one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/crypto/SystemCerts.h"

namespace mailtree::cli {

/// A message without its encrypted layers. Signed layers inside the innermost one stay, byte for byte, so that they
/// still verify.
struct OpenedMessage {
  std::string bytes;           ///< Empty when nothing was opened.
  std::string problem;         ///< Why nothing, or not everything, was opened; empty when all was.
  bool lostSignature = false;  ///< A signed layer stood around an encrypted one and had to go.
  std::vector<std::string>
      fields;  ///< Displayed fields of which the encrypted ones took the place of others.
};

/// Opens what is encrypted as a whole, with the keys of a store. The header is the outer one; what the innermost
/// encrypted content says of itself takes the place of what stands outside, and describes the content.
OpenedMessage openMessage(std::string_view message, SystemCerts& certs);

}  // namespace mailtree::cli
