// mime/QuotedPrintable.h - the quoted-printable codec proper (RFC 2045, 6.7) and the Q payload of encoded words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree::quotedPrintable {

/// Decodes tolerantly into `out`, which holds text.size() bytes. "=" that begins no valid escape stays as it is.
/// Blanks before a line break are transport padding and dropped. @return bytes written.
std::size_t decode(std::string_view text, std::uint8_t* out) noexcept;

/// Encodes data piece by piece with one line state, so that a sink needs a bounded buffer only.
class Encoder {
 public:
  /// Appends what `data` gives; `last` ends the text.
  void encode(std::string_view data, bool last, std::string& out);

 private:
  std::string m_pending;         ///< Bytes whose encoding depends on what follows: a blank, a CR, "From".
  std::size_t m_lineLength = 0;  ///< Bytes already on the current output line.
};

/// Decodes a Q payload of an encoded word (RFC 2047, 4.2), appended.
void decodeQ(std::string_view payload, std::string& out);

}  // namespace mailtree::quotedPrintable
