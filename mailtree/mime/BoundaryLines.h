// mime/BoundaryLines.h - lines that could be a boundary delimiter: the parser looks for
// them, the writer avoids them.
#pragma once

#include <cstring>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/header/HeaderLines.h"

namespace mailtree {

constexpr bool isLineBreak(char c) noexcept { return c == '\n' || c == '\r'; }

/// The next line at or after `from` that begins with "--", npos when there is none. Searches for dashes, not
/// line breaks: most mail is base64, which has no dashes.
inline std::size_t findDashLine(std::string_view text, std::size_t from) noexcept {
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const char* dash = begin + from;
  while (dash < end) {
    dash = static_cast<const char*>(std::memchr(dash, '-', static_cast<std::size_t>(end - dash)));
    if (!dash) break;
    const bool beginsLine = dash == begin || isLineBreak(dash[-1]);
    if (beginsLine && dash + 1 < end && dash[1] == '-') return static_cast<std::size_t>(dash - begin);
    while (dash < end && *dash == '-') ++dash;
  }
  return std::string_view::npos;
}

/// A line beginning with "--": the text after the dashes without trailing blanks, and the
/// offset of the next line.
struct DashLine {
  std::string_view content;
  std::size_t next;

  /// Whether the line is a delimiter of a multipart with this boundary, closing or not.
  bool isBoundary(std::string_view boundary) const noexcept {
    return content.starts_with(boundary) &&
           (content.size() == boundary.size() || content.substr(boundary.size()) == "--");
  }
};

inline DashLine dashLineAt(std::string_view text, std::size_t position) noexcept {
  const std::size_t begin = position + 2;
  const std::size_t end = endOfLine(text, begin);
  return {trimRight(text.substr(begin, end - begin)), afterLineBreak(text, end)};
}

}  // namespace mailtree
