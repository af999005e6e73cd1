// mime/html/Html.h - HTML structure for mail: completes the elements and corrects the charset META tag.
//
// Uses a small tokenizer that follows the HTML standard (tags, quoted and unquoted attributes, comments, raw
// text elements, anything unterminated); linear on any input.
#pragma once

#include "mailtree/base/Export.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

class MAILTREE_API _svHtmlHelp {
 public:
  /// Adds missing html, head and body elements; existing text stays byte for byte, and a second call
  /// changes nothing. A new head includes the content that belongs in it (title, meta, style ...), and a
  /// frameset page gets no body. Text in utf-16, recognized by its NULs, is left alone by every operation
  /// here.
  /// @return whether anything was added.
  static bool ensureStructure(StringBuffer& html);
  /// Replaces `out` with the charset that the first META tag (charset or http-equiv) declares; false, with
  /// `out` cleared, when there is none.
  static bool getCharset(const StringBuffer& html, StringBuffer& out);
  /// Adds a META tag with the charset as the first child of head, completing the structure first when there
  /// is no head. Adds nothing for an empty name.
  static void addCharsetMetaTag(StringBuffer& html, const char* charset, LogBase& log);
  /// Removes every META tag that declares a charset; no other byte changes.
  static void removeCharsetMetaTag(StringBuffer& html, LogBase& log);
};

}  // namespace mailtree
