// mime/charset/UnicodeInfo.h - the scripts of a text, and a charset that can represent it.
#pragma once

#include <cstdint>
#include <string_view>

#include "mailtree/base/Export.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree {

class MAILTREE_API UnicodeInfo {
 public:
  /// Scans utf-8 text for its scripts and symbols, replacing an earlier scan. ASCII, punctuation, digits and
  /// combining marks belong to every script.
  void ExamineUnicode(std::string_view utf8);
  /// Suggests a charset for the text scanned last:
  ///   1. the preferred one when it represents the text. utf-16, utf-32 and utf-7 do not count as a
  ///      preference: they do not work in text parts of mail;
  ///   2. none when iso-8859-1 or iso-8859-2 represents it;
  ///   3. if the preference is a traditional charset of the text's one script, a sibling that represents the
  ///      text: windows-1251 for "koi8-r" and a text with an em dash;
  ///   4. else utf-8: for mixed scripts, symbols, emoji, malformed text.
  /// To represent means that every character exists; best fits do not count.
  /// @param suggestion  receives the charset, under the preferred name of its code page,
  ///                    which is 0 when none is suggested.
  /// @param preferred   a charset name; null, empty or unknown: none.
  /// @param utf8        the scanned text.
  void suggestCharset(_svCharset& suggestion, const char* preferred, std::string_view utf8,
                      LogBase& log) const;

 private:
  std::uint32_t m_scripts = 0;  ///< Bits of the scripts seen.
};

}  // namespace mailtree
