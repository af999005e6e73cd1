// cli/merging/mailbox.h - destinations of merged messages: files in a folder, or one mailbox file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// Receives messages one by one. All operations return false after reporting an error.
class MergeTarget {
 public:
  virtual ~MergeTarget() = default;
  /// Prepares for this number of messages, and checks that no existing file would be overwritten.
  virtual bool open(std::uint64_t messages) = 0;
  virtual bool put(Email2& email) = 0;
  virtual bool commit() = 0;
};

/// Files 000001.eml, 000002.eml and so on.
/// @param force  replace existing files of these names.
std::unique_ptr<MergeTarget> folderTarget(std::string folder, bool force);

/// A file in mboxrd format with LF line breaks, entry by entry as a MailWriter makes it, but written whole or
/// not at all.
/// @param force  replace an existing file of this name.
std::unique_ptr<MergeTarget> mailboxTarget(std::string path, bool force);

}  // namespace mailtree::cli
