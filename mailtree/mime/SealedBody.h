// mime/SealedBody.h - bodies encrypted in place: ciphertext where the Content-Type tells of something else.
#pragma once

#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

/// The field in which an encrypted body keeps the transfer encoding that it had.
inline constexpr const char* kOriginalEncodingField = "x-original-encoding";

/// Whether a body is ciphertext, stored as base64 text under a base64 transfer encoding. Nobody converts it by the
/// label of the text that it will be again. The field alone proves nothing: anybody may write it.
inline bool isSealedBody(const MimeHeader& header, std::string_view transferEncoding,
                         std::string_view body) noexcept {
  return header.findField(kOriginalEncodingField) >= 0 && equalsNoCase(transferEncoding, "base64") &&
         ContentCoding::isBase64(body);
}

}  // namespace mailtree
