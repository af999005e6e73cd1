// message/files.h - files and messages as parts of a tree.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The code page to label a text file with: utf-8 when it has non-ASCII text in it, else 0 for unknown.
int codePageToLabel(std::string_view bytes);

/// Moves the content of a message into a multipart/mixed, to which files can be added, unless it is one.
void ensureMixed(Email2& root, LogBase& log);

/// Attaches a file. False when memory ran out.
/// @param type      empty: by the extension of the name.
/// @param codePage  of a text file; 0: not labelled.
bool attachFileTo(Email2& root, const std::string& name, const std::string& type, int codePage,
                  const DataBuffer& bytes, LogBase& log);

/// Attaches a message as message/rfc822, whose bytes are not encoded (RFC 2046, 5.2.1): a boundary of this
/// message that occurs in them is replaced. A message with LF as line breaks gets CRLF, as it is sent,
/// unless it holds binary content, whose bytes would change.
/// @param name  of a file; may be empty.
bool attachMessageTo(Email2& root, const std::string& name, DataBuffer& bytes, LogBase& log);

/// A part for the HTML to show, with a Content-ID of its own; null when memory ran out.
EmailPtr newInlineItem(_svEmailCommon& common, const std::string& name, const std::string& type,
                       const DataBuffer& bytes, LogBase& log);
/// Sends a text file unchanged in base64, labelled utf-8 only if it is valid non-ASCII utf-8.
void keepBytesOf(Email2& item, LogBase& log);
/// The multipart/related around the HTML, or a new one; null when memory ran out.
Email2* relatedAround(Email2& root, Email2& html, LogBase& log);

}  // namespace mailtree
