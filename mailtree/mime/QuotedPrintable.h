// mime/QuotedPrintable.h - the quoted-printable codec proper (RFC 2045, 6.7) and the Q of encoded words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree::quotedPrintable {

/// Decodes tolerantly into `out`, which holds text.size() bytes and is not the text itself. "=" that begins
/// no valid escape stays as it is; an "=" at the end of a line, blanks behind it or not, is a soft line
/// break. Deliberate: blanks at the end of a line stay. RFC 2045 takes them for padding that a transport
/// added, but transports that pad are gone; what is met are encoders that forgot to escape a blank of the
/// text.
/// @return bytes written.
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
