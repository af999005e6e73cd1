// cli/message/input.h - loading messages from files and standard input.
#pragma once

#include <optional>
#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

/// A loaded message.
struct Message {
  RefPtr<_svEmailCommon> common;
  EmailPtr root;

  /// Limits exceeded while loading.
  LimitSet limits() const { return common->m_limits; }
};

/// Reads and loads a message and unwraps its signed and encrypted layers with the keys in `certs`; nothing
/// after reporting an error.
std::optional<Message> loadMessage(const std::string& path, SystemCerts& certs);
/// The same without keys: signed layers are unwrapped, encrypted ones stay closed.
std::optional<Message> loadMessage(const std::string& path);
/// The same from bytes in memory, which are not changed; `path` is the name used in error messages.
std::optional<Message> loadMessage(const std::string& path, DataBuffer& bytes, SystemCerts& certs);

/// Loads a message that is to be written again. Bare LF in a file with Unix line breaks becomes CRLF,
/// because a bare LF would be re-encoded as data (RFC 2045, 6.7). Signed content keeps its bytes, and no
/// layer is unwrapped.
std::optional<Message> loadMessageToWrite(const std::string& path);
/// The same from bytes in memory, which are not changed.
std::optional<Message> loadMessageToWrite(const std::string& path, DataBuffer& bytes);

/// Reads and opens a message, layers and all; nothing after reporting an error.
std::optional<mailtree::Message> openMessage(const std::string& path, const mailtree::Keys& keys);
std::optional<mailtree::Message> openMessage(const std::string& path);

/// Limits exceeded while a message was loaded.
LimitSet limitsIn(const mailtree::Message& message);
/// Reads a file up to the empty line after its header, so that a large message costs no more than a small
/// one.
bool readHeader(const std::string& path, DataBuffer& bytes);

/// Reports every limit that was exceeded and returns the matching exit code.
Exit reportLimits(const std::string& path, LimitSet limits);

}  // namespace mailtree::cli
