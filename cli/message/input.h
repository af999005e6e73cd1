// cli/message/input.h - messages that verbs read and load.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cli/message/sources.h"
#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

/// A message as it came.
struct Input {
  SourceMessage source;         ///< With its bytes.
  std::string name;             ///< "box.mbox#12", or its file.
  std::string found;            ///< The mailbox or folder that it was found in; of a single file, its name.
  bool isOneOfSeveral = false;  ///< The verb works on others too.
  bool isDamaged = false;       ///< Loading found that something of it is missing or unreadable.
  std::optional<std::string> rewritten{};  ///< What becomes of it, for a mailbox or folder.

  std::string_view bytes() const noexcept { return source.bytes; }
};

/// Reads the one message that an argument names; nothing after reporting an error.
std::optional<Input> readInput(const std::string& argument);

/// A loaded message.
struct Message {
  RefPtr<_svEmailCommon> common;
  EmailPtr root;

  /// Limits exceeded while loading.
  LimitSet limits() const { return common->m_limits; }
};

/// Loads a message and unwraps its signed layers; encrypted ones stay closed. Nothing after reporting an
/// error.
std::optional<Message> loadMessage(Input& input);

/// Loads a message that is to be written again. Bare LF in a file with Unix line breaks becomes CRLF,
/// because a bare LF would be re-encoded as data (RFC 2045, 6.7). Signed content keeps its bytes, and no
/// layer is unwrapped.
std::optional<Message> loadMessageToWrite(Input& input);
std::optional<Message> loadMessageToWrite(const std::string& argument);
/// The same from bytes in memory; `name` is used in error messages.
std::optional<Message> loadMessageToWrite(const std::string& name, std::string_view bytes);

/// Opens a message, layers and all; nothing after reporting an error.
std::optional<mailtree::Message> openMessage(Input& input, const mailtree::Keys& keys);
std::optional<mailtree::Message> openMessage(Input& input);
std::optional<mailtree::Message> openMessage(const std::string& argument, const mailtree::Keys& keys);
std::optional<mailtree::Message> openMessage(const std::string& argument);

/// Limits exceeded while a message was loaded.
LimitSet limitsIn(const mailtree::Message& message);

/// Reports every limit that was exceeded and returns the matching exit code.
Exit reportLimits(const std::string& name, LimitSet limits);

}  // namespace mailtree::cli
