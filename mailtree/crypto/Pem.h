// crypto/Pem.h - the armoured blocks of a text (RFC 7468), whatever stands around them.
#pragma once

#include <optional>
#include <string_view>

#include "mailtree/base/DataBuffer.h"

namespace mailtree {

struct PemBlock {
  std::string_view name;  ///< "CERTIFICATE", ...
  std::string_view body;  ///< Between the lines that mark beginning and end.
  std::string_view text;  ///< With these lines.
};

/// Gives out one block after the other. One pass; a beginning without its end is passed over.
class PemReader {
 public:
  explicit PemReader(std::string_view text) noexcept : m_rest(text) {}
  std::optional<PemBlock> next() noexcept;

  static bool looksLikePem(std::string_view bytes) noexcept;

 private:
  std::string_view m_rest;
};

/// The bytes that the body stands for, lines of any length; replaces `der`. False when it is no base64.
bool decodePemBody(const PemBlock& block, DataBuffer& der);

}  // namespace mailtree
