// crypto/Pem.h - PEM blocks (RFC 7468) in any surrounding text.
#pragma once

#include <optional>
#include <string_view>

#include "mailtree/base/DataBuffer.h"

namespace mailtree {

struct PemBlock {
  std::string_view name;  ///< "CERTIFICATE", ...
  std::string_view body;  ///< Between the begin and end lines.
  std::string_view text;  ///< Including these lines.
};

/// Returns the blocks one by one, in one pass; a begin line without an end line is skipped.
class PemReader {
 public:
  explicit PemReader(std::string_view text) noexcept : m_rest(text) {}
  std::optional<PemBlock> next() noexcept;

  static bool looksLikePem(std::string_view bytes) noexcept;

 private:
  std::string_view m_rest;
};

/// Decodes the body, with lines of any length, and replaces `der`. False when it is not base64.
bool decodePemBody(const PemBlock& block, DataBuffer& der);

}  // namespace mailtree
