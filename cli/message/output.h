// cli/message/output.h - messages to files and standard output.
#pragma once

#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace mailtree::cli {

struct WriteForm {
  bool qpFor8bit = false;
  bool dotStuff = false;
  Readers readers = Readers::usual;
};

/// Writes a message as MIME, without the fields that are the library's own. A file is there whole or not at
/// all; a terminal gets only the harmless part. unreadable after a complaint.
Exit writeMessage(Email2& root, const std::string& path, const WriteForm& form = {});

/// Appends a message as writeMessage writes it, but never dot-stuffed. False when it is not whole.
bool assembleMessage(Email2& root, StringBuffer& out, LogBase& log, const WriteForm& form = {});

}  // namespace mailtree::cli
