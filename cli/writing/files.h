// cli/writing/files.h - files and messages to be attached.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

struct AttachOptions {
  std::vector<std::string> files;     ///< FILE or FILE:TYPE
  std::vector<std::string> messages;  ///< Files that hold messages.

  bool any() const { return !files.empty() || !messages.empty(); }
  /// How often standard input is one of the files.
  int countOfStandardInput() const;
};

void addAttachOptions(CLI::App& verb, AttachOptions& options);

/// A file read and ready to be attached.
struct AttachedFile {
  std::string name;
  std::string type;  ///< Empty: by the extension.
  DataBuffer bytes;
  bool isMessage = false;  ///< Attached as message/rfc822.
};

/// Reads everything there is to attach, in the order in which it will stand; usage or unreadable after a
/// complaint.
Exit readAttachedFiles(const AttachOptions& options, std::vector<AttachedFile>& files);

/// Puts a file behind everything else. What the message was, a text or a file, stays a part of its own.
bool attach(Email2& email, AttachedFile& file, LogBase& log);

}  // namespace mailtree::cli
