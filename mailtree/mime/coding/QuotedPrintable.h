// mime/coding/QuotedPrintable.h - the quoted-printable codec (RFC 2045, 6.7) and the Q of encoded words, in
// the widest vector instructions of the processor.
//
// Chosen once at run time; the portable code gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree::quotedPrintable {

/// Decodes tolerantly into `out`, which holds text.size() bytes and is not the text itself. A "=" that begins
/// no valid escape stays; a "=" at the end of a line, with or without blanks after it, is a soft line break.
/// Deliberate: blanks at the end of a line stay. RFC 2045 treats them as padding added by a transport, but
/// such transports are gone; today they come from encoders that do not escape trailing blanks.
/// @return bytes written.
std::size_t decode(std::string_view text, std::uint8_t* out) noexcept;

/// The portable version; tests compare the vector code with it.
std::size_t decodePortable(std::string_view text, std::uint8_t* out) noexcept;

/// Encodes data piece by piece with one line state, so a sink needs only a bounded buffer.
class Encoder {
 public:
  /// Appends the encoding of `data`; `last` ends the text.
  void encode(std::string_view data, bool last, std::string& out);

 private:
  std::string m_unfinished;       ///< Encoded text of the unfinished line.
  bool m_carriageReturn = false;  ///< The last byte was a CR, which may belong to a line break.
};

/// Decodes a Q payload of an encoded word (RFC 2047, 4.2) and appends it.
void decodeQ(std::string_view payload, std::string& out);

}  // namespace mailtree::quotedPrintable
