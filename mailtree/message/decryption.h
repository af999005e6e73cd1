// message/decryption.h - a message without its encrypted layers.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

/// A message without its encrypted layers. Signed layers inside the innermost encrypted one keep their bytes,
/// so they still verify.
struct DecryptedMessage {
  std::string bytes;                ///< Empty when nothing was opened.
  std::string problem;              ///< Why a layer was not opened; empty when all were.
  bool lostSignature = false;       ///< A signed layer around an encrypted one was removed.
  std::vector<std::string> fields;  ///< Displayed header fields replaced by different encrypted ones.
};

/// Decrypts a message that is encrypted as a whole, with the keys of a store. The outer header is kept,
/// except for fields that the innermost encrypted content has too, its Content- fields among them.
DecryptedMessage decryptMessage(std::string_view message, SystemCerts& certs);

}  // namespace mailtree
