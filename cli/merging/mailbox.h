// cli/merging/mailbox.h - where merged messages go: files in a folder, or one mailbox file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// Takes messages one by one. Everything is false after a complaint.
class MergeTarget {
 public:
  virtual ~MergeTarget() = default;
  /// Makes ready for so many messages, and makes sure that nothing which is there has to give way to them.
  virtual bool open(std::uint64_t messages) = 0;
  virtual bool put(Email2& email) = 0;
  virtual bool commit() = 0;
};

/// Files 000001.eml, 000002.eml and so on.
/// @param force  files of these names are replaced.
std::unique_ptr<MergeTarget> folderTarget(std::string folder, bool force);

/// A file in the mboxrd form, its lines ending in LF: a "From " line before each message, ">" before every line
/// that reads like one. It is there whole or not at all.
/// @param force  a file of this name is replaced.
std::unique_ptr<MergeTarget> mailboxTarget(std::string path, bool force);

/// Appends a message with CRLF line ends in that form.
void appendToMailbox(std::string_view message, std::string_view sender, const SorvikSysTime& received,
                     std::string& out);

}  // namespace mailtree::cli
