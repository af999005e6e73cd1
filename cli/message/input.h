// cli/message/input.h - messages from files and standard input.
#pragma once

#include <optional>
#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// A message in memory.
struct Message {
  RefPtr<_svEmailCommon> common;
  EmailPtr root;

  /// The limits met while loading.
  LimitSet limits() const { return common->m_limits; }
};

/// Reads and loads a message, its signed and encrypted layers taken off with what `certs` holds; nothing after a
/// complaint.
std::optional<Message> loadMessage(const std::string& path, SystemCerts& certs);
/// The same without any key: what is signed is taken out, what is encrypted stays closed.
std::optional<Message> loadMessage(const std::string& path);
/// The same from bytes in memory, which stay as they are; `path` is what they are called in a complaint.
std::optional<Message> loadMessage(const std::string& path, DataBuffer& bytes, SystemCerts& certs);

/// The same for a message that is going to be written. A file with the line ends of Unix gets those of mail: what
/// is encoded anew would take a bare LF for a character (RFC 2045, 6.7). Signed content stays as it came, and no layer
/// is taken off.
std::optional<Message> loadMessageToWrite(const std::string& path);
/// The same from bytes in memory, which stay as they are.
std::optional<Message> loadMessageToWrite(const std::string& path, DataBuffer& bytes);

/// Complains about every limit met; the exit status that goes with them.
Exit reportLimits(const std::string& path, LimitSet limits);

}  // namespace mailtree::cli
