// mime/charset/UnicodeInfo.h - which scripts a text is written in, and which charset can carry it.
#pragma once

#include <cstdint>
#include <string_view>

#include "mailtree/mime/charset/Charset.h"

namespace mailtree {

class UnicodeInfo {
 public:
  /// Scans utf-8 text for its scripts and symbols, forgetting an earlier scan. ASCII, punctuation, digits and
  /// combining marks belong to every script.
  void ExamineUnicode(std::string_view utf8);
  /// Suggests a charset for the text scanned last:
  ///   1. the preferred one when it carries the text. The forms of utf-16, utf-32 and utf-7 count as no
  ///      preference: text parts of mail do not work in them;
  ///   2. none when iso-8859-1 or iso-8859-2 carries it;
  ///   3. where the preference is a traditional charset of the text's one script, a sister of it that carries
  ///      the text: windows-1251 for "koi8-r" and a text with an em dash;
  ///   4. else utf-8, which is what today's readers expect: for mixed scripts, symbols, emoji, malformed text.
  /// To carry means that every character exists there; best fits do not count.
  /// @param suggestion  receives the charset, under the preferred name of its code page, which is 0 when none
  ///                    is suggested.
  /// @param preferred   a charset name; null, empty or unknown: none.
  /// @param utf8        the text, as it was scanned.
  void suggestCharset(_svCharset& suggestion, const char* preferred, std::string_view utf8,
                      LogBase& log) const;

 private:
  std::uint32_t m_scripts = 0;  ///< Bits of the scripts seen.
};

}  // namespace mailtree
