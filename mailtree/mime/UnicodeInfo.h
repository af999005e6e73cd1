// mime/UnicodeInfo.h - which scripts a text is written in, and which charset can carry it.
#pragma once

#include <cstdint>
#include <string_view>

#include "mailtree/mime/Charset.h"

namespace mailtree {

class UnicodeInfo {
 public:
  /// Scans utf-8 text for its scripts and symbols, forgetting an earlier scan.
  void ExamineUnicode(std::string_view utf8);
  /// Suggests a charset for the text scanned last: the preferred one when it carries the text; none when
  /// iso-8859-1 or iso-8859-2 carries it; a traditional charset only for a single script whose family the
  /// preference names; else utf-8, which is what today's readers expect.
  /// @param suggestion  receives the charset; its code page is 0 when none is suggested.
  /// @param preferred   a charset name; null or empty: none.
  /// @param utf8        the text, as it was scanned.
  void suggestCharset(_svCharset& suggestion, const char* preferred, std::string_view utf8,
                      LogBase& log) const;

 private:
  std::uint32_t m_scripts = 0;  ///< Bits of the scripts seen.
};

}  // namespace mailtree
