// cli/input.h - messages from files and standard input, and complaints about them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// Why nothing is given that would not be whole.
inline constexpr std::string_view kNoMemory = "not enough memory";

/// Writes "mailtree: what is wrong" to standard error.
void complain(std::string_view problem);
/// Writes "mailtree: FILE: what is wrong"; an empty name shows as ''.
void complain(std::string_view file, std::string_view problem);

/// Complains about an option or argument of the command line; usage.
Exit refuse(std::string_view option, std::string_view problem);

/// The last error of a log; `otherwise` when it holds none.
std::string lastError(const LogMemory& log, std::string_view otherwise);

/// Flushes standard output; unreadable, after a complaint, when not all of it could be written.
Exit finishStandardOutput();

/// Appends the files that an argument stands for: itself, or when it is a folder the files in it, in the order of their
/// names, without hidden ones and without those of folders below. unreadable after a complaint.
Exit appendFiles(const std::string& path, std::vector<std::string>& files);

/// Reads a whole file, or standard input for "-". False after a complaint.
bool readFile(const std::string& path, DataBuffer& bytes);

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
