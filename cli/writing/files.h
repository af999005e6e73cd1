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
  /// Number of options that read standard input.
  int countOfStandardInput() const;
};

void addAttachOptions(CLI::App& verb, AttachOptions& options);

/// A file read and ready to be attached.
struct AttachedFile {
  std::string name;
  std::string type;  ///< Empty: derived from the extension.
  DataBuffer bytes;
  bool isMessage = false;  ///< Attached as message/rfc822.
};

/// Reads all files to attach, in the order in which they are added; usage or unreadable after
/// reporting an error.
Exit readAttachedFiles(const AttachOptions& options, std::vector<AttachedFile>& files);

/// Appends a file as the last part. The former content of the message, text or file, becomes a separate part.
bool attach(Email2& email, AttachedFile& file, LogBase& log);

}  // namespace mailtree::cli
