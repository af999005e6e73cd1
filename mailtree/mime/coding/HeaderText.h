// mime/coding/HeaderText.h - what all header values share: line breaks, bytes to utf-8, code pages.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Whether the text holds CR, LF or NUL, which no header value may.
bool holdsBreak(std::string_view text) noexcept;

/// The text on one line: a folding line break goes, any other becomes one space, and so does NUL.
std::string withoutBreaks(std::string_view text);

/// Erases every CR, LF and NUL.
void eraseBreaks(std::string& text);

/// Appends bytes that claim to be in a code page (0: no claim) as utf-8. A wrong claim falls through to valid
/// utf-8, to what is only damaged (a title cut in the middle of a character), and to detection; what nothing
/// explains becomes U+FFFD.
void appendBytesAsUtf8(int codePage, std::string_view bytes, std::string& out);

/// Best guess for 8-bit header text, 0 when nothing fits. Never a code page that ASCII text could not be
/// mixed with.
int detectHeaderCodePage(std::string_view bytes);

/// The code page in which header text is written when `wanted` was asked for: utf-8 for none, for us-ascii,
/// for one without a charset name and for the Unicode forms that hold NUL bytes or escapes.
int writableCodePage(int wanted) noexcept;

/// Whether a code page switches its state by escapes, so that a single character cannot be encoded alone.
constexpr bool isStatefulCodePage(int codePage) noexcept {
  return (codePage >= 50220 && codePage <= 50229) || codePage == 52936;
}

}  // namespace mailtree
