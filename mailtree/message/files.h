// message/files.h - files and messages as parts of a tree.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"

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

/// A file as it is attached.
struct GivenFile {
  std::string name, type;
  int codePage = 0;  ///< Of a text file; 0: not labelled.

  bool isMessage() const;
};

/// Finds out the name, type and charset of a file, or what is wrong with what is said of it.
Result<GivenFile> checkFile(std::string_view path, std::string_view bytes, const AttachOptions& options);

/// Whether it can be a Content-ID, without angle brackets, that HTML refers to.
bool isContentId(std::string_view id);

}  // namespace mailtree
