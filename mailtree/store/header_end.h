// store/header_end.h - where the header of a message ends. Private.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "mailtree/mime/Limits.h"
#include "mailtree/mime/header/HeaderLines.h"

namespace mailtree {

/// Looks for the end of a header in a text that grows.
class HeaderEnd {
 public:
  /// Whether the header is complete, or too long for anyone to read all of it.
  bool isIn(std::string_view text) {
    for (std::size_t end; isWhole(text, end = endOfLine(text, m_line)); m_line = afterLineBreak(text, end)) {
      if (end == m_line && m_hasText) return true;
      m_hasText = m_hasText || !trim(text.substr(m_line, end - m_line)).empty();
      if (!m_hasText) m_begin = end;
    }
    return text.size() - m_begin > kMost;
  }

 private:
  /// Enough to see that the limit is exceeded.
  static constexpr std::size_t kMost = kMaxHeaderBytes + (std::size_t{64} << 10);

  /// Whether the line break at `end` is there, and all of it: CR may be half of one.
  static bool isWhole(std::string_view text, std::size_t end) {
    const std::string_view rest = text.substr(std::min(end, text.size()));
    return !rest.empty() && rest != "\r" && rest != "\r\r";
  }

  std::size_t m_begin = 0;  ///< Of the header, after empty lines.
  std::size_t m_line = 0;   ///< The first line that was not complete.
  bool m_hasText = false;
};

}  // namespace mailtree
