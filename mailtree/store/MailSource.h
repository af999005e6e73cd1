// store/MailSource.h - where messages come from: mailboxes, folders, archives, single files.
//
//   Pulling    next() gives one message after the other. An mbox, an archive and standard input give bytes;
//              a folder gives names only, and whoever processes the message reads it with readMessage(), on
//              any thread. A SourceMessage is meant to be used again: its buffers keep their memory.
//   Failure    A message that cannot be given has an error and is counted; the others follow. When reading
//              ends early, error() says why.
//   Mbox       Lines quoted with ">" are unquoted as in mboxrd. One empty line before a separator is not
//              part of the message. A file whose first message has a Content-Length that leads to its end
//              is read by these lengths, and its lines are left as they are; elsewhere they mean nothing,
//              and lengths that lead nowhere never do. docs/ARCHITECTURE.md says what a file keeps of a
//              message.
//   Memory     One window (256 KiB), the message, and the names of one folder.
//   Changes    A file is read as long as it was when it was opened. One that becomes shorter is an error.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "mailtree/base/Export.h"
#include "mailtree/base/Result.h"

namespace mailtree {

class SourceReader;

/// A message, and where it is.
struct SourceMessage {
  std::string path;          ///< Of the file it is in; "-" for standard input.
  std::string entry;         ///< In an archive: the name there.
  std::uint64_t number = 0;  ///< From 1 in its source; 0 after a start in the middle of an mbox.
  std::uint64_t offset = 0;  ///< In an mbox: where its separator line begins.
  std::uint64_t length = 0;  ///< In an mbox: from there to the next separator or the end; else what was read.
  bool sharesFile = false;   ///< Its file has others, or is an archive; number or offset tell which it is.
  std::string folder;        ///< Below the folder that was opened, such as "Archive/2026"; empty at its top.
  bool isInMaildir = false;  ///< Its file may be renamed at any time; readMessage() follows it.
  std::optional<std::string> flags;  ///< Maildir: its letters, "RS"; absent for a message in new/.
  std::string sender;                ///< The separator's, if it has one.
  std::optional<std::chrono::sys_seconds> date;  ///< The separator's.
  bool hasBytes = false;                         ///< Otherwise readMessage() gets them.
  std::string bytes;
  std::optional<Error> error;  ///< Why there is nothing to read here.
};

/// The name of a message among all: "box.mbox#12", or "box.mbox@4096" where it has no number; the path of a
/// message that is a file.
MAILTREE_API std::string nameOf(const SourceMessage& message);

struct SourceOptions {
  std::uint64_t largest = 0x7FFFFFFF;         ///< A longer message is named and not read.
  std::size_t window = std::size_t{1} << 18;  ///< Bytes read at once.
  /// A file or stream that is one message is read as far as its header goes. Messages of a mailbox are whole.
  bool headersOnly = false;
};

class MAILTREE_API MailSource {
 public:
  /// What a path turned out to be.
  enum class Kind { message, mbox, maildir, mh, folder, archive };

  /// Opens a file, a folder, or "-" for standard input.
  static Result<MailSource> open(const std::string& path, const SourceOptions& options = {});
  /// The same for a program that may have to stop waiting for a pipe.
  /// @param cancel  borrowed as long as the source; when it becomes true, waiting ends with an error.
  static Result<MailSource> open(const std::string& path, const SourceOptions& options,
                                 const std::atomic<bool>& cancel);
  MailSource(MailSource&&) noexcept;
  MailSource& operator=(MailSource&&) noexcept;
  ~MailSource();

  /// Known of an archive only after its first message: a compressed mbox is an mbox.
  Kind kind() const noexcept;
  /// Gives the next message; false at the end.
  bool next(SourceMessage& message);
  /// Why next() returned false before the end; null otherwise.
  const Error* error() const noexcept;

  /// The next message will be this one, counted from 1. Those before it are passed without being copied. It
  /// must not have been given or passed yet; not after seekOffset() or takePart().
  Result<void> seekNumber(std::uint64_t number);
  /// The next message of an mbox will be the one whose separator line is there. In a stream and in a
  /// compressed mbox, whose offsets are those of what is decompressed, it must not have been given or passed.
  Result<void> seekOffset(std::uint64_t offset);
  /// Limits a source that was just opened to one of `parts` parts, counted from 0. Together they give each
  /// message once. A part of an mbox is a range of its bytes and found without reading what is before it,
  /// unless it is read by lengths; its messages have no numbers. Other sources deal their messages out in
  /// turn.
  Result<void> takePart(std::uint64_t part, std::uint64_t parts);
  /// Limits a source that was just opened to the messages whose separators begin in a range of bytes.
  /// badValue for all but an uncompressed mbox.
  Result<void> takeBytes(std::uint64_t begin, std::uint64_t end);

 private:
  explicit MailSource(std::unique_ptr<SourceReader> reader);
  static Result<MailSource> open(const std::string& path, const SourceOptions& options,
                                 const std::atomic<bool>* cancel);

  std::unique_ptr<SourceReader> m_reader;
  std::optional<Error> m_error;
  std::uint64_t m_passed = 0;                         ///< Messages that were given or passed.
  std::uint64_t m_part = 0, m_parts = 1, m_turn = 0;  ///< Of messages dealt out in turn.
};

/// Reads the bytes of a message that was given by name, unless it has them. Any thread may do so.
MAILTREE_API Result<void> readMessage(SourceMessage& message, const SourceOptions& options = {});

}  // namespace mailtree
