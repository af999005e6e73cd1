// mime/coding/QuotedPrintable.h - the quoted-printable codec proper (RFC 2045, 6.7) and the Q of encoded words, in the
// widest vector instructions the processor has.
//
// Chosen once at run time; the portable path is always there and gives the same bytes.
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

/// The portable twin, which the vector path is tested against.
std::size_t decodePortable(std::string_view text, std::uint8_t* out) noexcept;

/// Encodes data piece by piece with one line state, so that a sink needs a bounded buffer only.
class Encoder {
 public:
  /// Appends what `data` gives; `last` ends the text.
  void encode(std::string_view data, bool last, std::string& out);

 private:
  std::string m_unfinished;       ///< Encoded text of a line whose end was not seen.
  bool m_carriageReturn = false;  ///< A CR came last, which may belong to a line break.
};

/// Decodes a Q payload of an encoded word (RFC 2047, 4.2), appended.
void decodeQ(std::string_view payload, std::string& out);

}  // namespace mailtree::quotedPrintable
