// mime/EncryptedBody.h - bodies encrypted in place: ciphertext under the Content-Type of the plaintext.
#pragma once

#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

/// The field that keeps the original transfer encoding of an encrypted body.
inline constexpr const char* kOriginalEncodingField = "x-original-encoding";

/// Whether a body is ciphertext, stored as base64 text under a base64 transfer encoding. Such a body is not
/// converted by the charset of the decrypted text. The field alone proves nothing: anybody can write it.
inline bool isEncryptedBody(const MimeHeader& header, std::string_view transferEncoding,
                            std::string_view body) noexcept {
  return header.findField(kOriginalEncodingField) >= 0 && equalsNoCase(transferEncoding, "base64") &&
         ContentCoding::isBase64(body);
}

}  // namespace mailtree
