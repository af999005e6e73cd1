// cli/message/output.h - writing messages to files and standard output.
#pragma once

#include <string>

#include "cli/message/input.h"
#include "cli/support/exit_codes.h"
#include "cli/support/output_file.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

struct WriteForm {
  bool qpFor8bit = false;
  bool dotStuff = false;
  Readers readers = Readers::usual;
};

/// Decrypted content is readable only by its owner, also in an answer that repeats it.
Readers readersOf(const mailtree::Message& message);

/// Writes a message as MIME, without the fields internal to the library. A file is written whole or not at
/// all; a terminal gets only harmless characters. unreadable after reporting an error.
Exit writeMessage(Email2& root, const Destination& to, const WriteForm& form = {});
/// The same for one of any number of messages.
/// @param to  null: the message becomes input.rewritten.
Exit writeMessage(Email2& root, Input& input, const Destination* to, const WriteForm& form = {});
Exit writeMessage(const mailtree::Message& message, const Destination& to, const WriteOptions& options = {});

/// A message with LF for each CRLF, as programs on Unix hosts take it.
std::string withLfForCrlf(std::string text);

/// Appends a message as writeMessage() writes it, but never dot-stuffed. False when it is incomplete.
bool assembleMessage(Email2& root, StringBuffer& out, LogBase& log, const WriteForm& form = {});

}  // namespace mailtree::cli
