// cli/message/target.h - where several messages are written: mbox:FILE, maildir:FOLDER or dir:FOLDER.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/store/MailWriter.h"

namespace mailtree::cli {

struct Target {
  enum class Kind { mbox, maildir, folder };

  Kind kind = Kind::mbox;
  std::string path;  ///< "-" is an mbox on standard output.
};

Result<Target> targetOf(std::string_view text);
/// The same for a name that may also be without a prefix: a Maildir or folder that is there or ends in "/",
/// else an mbox.
Target targetNamed(const std::string& text);
/// Where messages of a subfolder, such as "Archive/2026", belong; creates folders that are above it.
Target subfolderOf(const Target& target, const std::string& folder);
Result<MailWriterPtr> openTarget(const Target& target);

}  // namespace mailtree::cli
