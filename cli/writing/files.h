// cli/writing/files.h - files and messages to be attached.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

class Verb;

struct AttachOptions {
  std::vector<std::string> files;     ///< FILE or FILE:TYPE
  std::vector<std::string> messages;  ///< Files that hold messages.

  bool any() const { return !files.empty() || !messages.empty(); }
  /// Number of options that read standard input.
  int countOfStandardInput() const;
};

void addAttachOptions(Verb verb, AttachOptions& options);

/// A file read and ready to be attached.
struct AttachedFile {
  std::string name;  ///< May be empty for a message.
  std::string type;  ///< Empty: unknown.
  DataBuffer bytes;

  bool isMessage() const;
};

/// Reads all files to attach, in the order in which they are added; usage or unreadable after
/// reporting an error.
Exit readAttachedFiles(const AttachOptions& options, std::vector<AttachedFile>& files);

/// Reads one file, FILE or FILE:TYPE; usage or unreadable after reporting an error.
Exit readAttachedFile(const std::string& argument, AttachedFile& file);

/// Why such a file cannot be attached, without reading all of it; nothing when it can.
std::optional<std::string> problemOfAttachment(const std::string& argument);

/// Appends a file as the last part. The former content of the message, text or file, becomes a separate part.
Result<void> attach(mailtree::Message& message, const AttachedFile& file);
/// The same for a tree, without any checks; the file's bytes may be moved from.
bool attach(Email2& email, AttachedFile& file, LogBase& log);

}  // namespace mailtree::cli
