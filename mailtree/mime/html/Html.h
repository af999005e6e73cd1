// mime/html/Html.h - what mail needs of HTML: a complete structure and a charset META tag that tells the truth.
//
// Works on a small tokenizer after the HTML standard's rules (tags, quoted and unquoted attributes, comments,
// raw text elements, unclosed everything); linear on any input.
#pragma once

#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

class _svHtmlHelp {
 public:
  /// Gives the text an html, head and body element where it lacks them; what is there stays byte for byte, a
  /// second call changes nothing. Where the head is missing, what belongs into it (title, meta, style ...)
  /// comes to stand in the new one, and a page of frames gets no body. Text in utf-16, known by its NULs, is
  /// left alone by every operation here.
  /// @return whether anything was added.
  static bool ensureStructure(StringBuffer& html);
  /// Replaces `out` by the charset that the first META tag of either form declares; false, with `out`
  /// emptied, without one.
  static bool getCharset(const StringBuffer& html, StringBuffer& out);
  /// Adds a META tag naming the charset as the first child of head, completing the structure first where
  /// there is no head. Nothing is added for an empty name.
  static void addCharsetMetaTag(StringBuffer& html, const char* charset, LogBase& log);
  /// Removes every META tag that declares a charset, touching no other byte.
  static void removeCharsetMetaTag(StringBuffer& html, LogBase& log);
};

}  // namespace mailtree
