// mime/HeaderLines.h - the lines of a header: where they end and whether they begin a field.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Where the line that `from` stands in ends: at its line break, or at the end of the text. Looks little
/// further than that, whichever kind of line break the text has.
inline std::size_t endOfLine(std::string_view text, std::size_t from) noexcept {
  constexpr std::size_t kWindow = 256;
  while (from < text.size()) {
    const char* const begin = text.data() + from;
    const std::size_t size = std::min(kWindow, text.size() - from);
    const auto* const lf = static_cast<const char*>(std::memchr(begin, '\n', size));
    const std::size_t before = lf ? static_cast<std::size_t>(lf - begin) : size;
    if (const void* cr = std::memchr(begin, '\r', before))
      return from + static_cast<std::size_t>(static_cast<const char*>(cr) - begin);
    if (lf) return from + before;
    from += size;
  }
  return text.size();
}

/// Where the line behind the line break at `end` begins. Breaks: CRLF, LF, CR, and CR CR LF, which text files
/// that went through two conversions have.
constexpr std::size_t afterLineBreak(std::string_view text, std::size_t end) noexcept {
  if (end >= text.size()) return text.size();
  if (text[end] == '\n') return end + 1;
  const std::string_view rest = text.substr(end + 1, 2);
  if (rest == "\r\n") return end + 3;
  return rest.starts_with('\n') ? end + 2 : end + 1;
}

/// What a field name may consist of (RFC 5322, 3.6.8).
constexpr bool isFieldNameChar(char c) noexcept { return c > ' ' && c < 0x7F && c != ':'; }

struct FieldStart {
  std::size_t nameSize = 0;  ///< 0: the line begins no field.
  std::size_t colon = 0;
};

/// Reads "name:" at the begin of a line. Blanks before the colon are accepted (RFC 5322, 4.5).
constexpr FieldStart readFieldStart(std::string_view line) noexcept {
  std::size_t at = 0;
  while (at < line.size() && isFieldNameChar(line[at])) ++at;
  const std::size_t nameSize = at;
  while (at < line.size() && isBlankAscii(line[at])) ++at;
  if (at == line.size() || line[at] != ':') return {};
  return {nameSize, at};
}

}  // namespace mailtree
