// mime/coding/HeaderText.h - text functions for all header values: line breaks, bytes to utf-8, code pages.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Whether the text holds CR, LF or NUL, which no header value may.
bool containsBreak(std::string_view text) noexcept;

/// The text on one line: a folding line break is removed, any other and NUL become one space.
std::string withoutBreaks(std::string_view text);

/// Erases every CR, LF and NUL.
void eraseBreaks(std::string& text);

/// Appends bytes declared to be in a code page (0: undeclared) as utf-8. If they are not,
/// tries valid utf-8, damaged text (a title cut in the middle of a character), and detection;
/// bytes that nothing decodes become U+FFFD.
void appendBytesAsUtf8(int codePage, std::string_view bytes, std::string& out);

/// Best guess for 8-bit header text, 0 when nothing fits. Never a code page that is not ASCII-compatible.
int detectHeaderCodePage(std::string_view bytes);

/// The code page for writing header text when `wanted` was requested: utf-8 for none, for us-ascii, for one
/// without a charset name and for the Unicode forms with NUL bytes or escapes.
int writableCodePage(int wanted) noexcept;

/// Whether a code page switches its state by escapes: its characters cannot be encoded one by one.
constexpr bool isStatefulCodePage(int codePage) noexcept {
  return (codePage >= 50220 && codePage <= 50229) || codePage == 52936;
}

}  // namespace mailtree
