// mime/coding/ContentCoding.h - transfer encodings: base64, quoted-printable, and the
// payloads of encoded words.
//
//   Standards  RFC 2045 (base64, quoted-printable), RFC 2047 (encoded words).
//   Decoding   Tolerant: stray characters are skipped, padding may be missing or in the middle,
//              lines may have any length, blanks may precede soft line breaks. Nothing
//              decodable is lost; nothing fails.
//   Encoding   Base64 lines are 76 bytes, quoted-printable lines at most 76, CRLF between lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Output.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class MAILTREE_API ContentCoding {
 public:
  /// Appends base64 in lines of 76, CRLF after every line, the last included. Empty input appends nothing.
  static bool encodeBase64(const void* data, std::size_t size, StringBuffer& out);
  /// Appends the decoded bytes.
  static bool decodeBase64ToDb(std::string_view text, DataBuffer& out);
  /// Whether the text consists of base64 digits, padding and white space only, with at least one digit.
  static bool isBase64(std::string_view text) noexcept;
  /// Size of encodeBase64's output for n bytes in lines of `lineLength` (CRLF counted; 0: one line without a
  /// break).
  static std::size_t computeBase64Size(std::size_t n, std::size_t lineLength) noexcept;

  /// Appends quoted-printable, byte-exact on decoding: CRLF stays a line break, a bare CR or LF becomes =0D
  /// or =0A. A line never ends in a blank, never begins with "." or "From " (the first byte is escaped).
  static bool encodeQuotedPrintable(const void* data, std::size_t size, StringBuffer& out);
  static bool decodeQuotedPrintableToDb(std::string_view text, DataBuffer& out);

  /// The same straight into a sink, in bounded memory; false when the sink failed.
  static bool encodeBase64ToOutput(const void* data, std::size_t size, _svOutput& out,
                                   ProgressContext& progress, LogBase& log);
  static bool encodeQpToOutput(const void* data, std::size_t size, _svOutput& out, ProgressContext& progress,
                               LogBase& log);

  /// Payload of a B encoded word: base64 without line breaks, as a new null-terminated array that the caller
  /// frees with delete[]; null when memory ran out. `outLength` receives its length.
  static char* B_Encode(const void* data, std::size_t size, std::size_t* outLength);
  /// Payload of a Q encoded word that is allowed in an address list: everything but letters, digits, "!",
  /// "*", "+", "-", "/" is escaped, space becomes "_". Freed with delete[].
  static char* Q_EncodeCommaToo(const void* data, std::size_t size, std::size_t* outLength);

  /// Decodes every encoded word of a header value to utf-8 in place.
  static void QB_DecodeToUtf8(StringBuffer& value, LogBase& log);
};

}  // namespace mailtree
