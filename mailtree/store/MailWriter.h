// store/MailWriter.h - where messages go: mbox, Maildir, folder of files, a stream.
//
//   Whole      A message is there whole or not at all: files get their names when their bytes are on disk,
//              and an append that fails is cut off again.
//   Batches    add() may keep messages back; flush() writes them and waits until they are on disk. What was
//              added after the last flush() may be missing when the writer is destroyed.
//   Killed     The .lock file says what is appended to an mbox. When the process ends in the middle, the
//              next writer that is opened on this host takes the lock over and cuts the mailbox back to
//              what it was. Where no .lock file can be created, what was written of a message stays, and
//              the next one is separate from it.
//   Others     Any number of programs may write to the same place. An mbox is locked (fcntl, then a .lock
//              file) while a batch is appended to it, and not in between.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "mailtree/base/Export.h"
#include "mailtree/base/Result.h"

namespace mailtree {

/// What a store keeps besides the bytes.
struct Delivery {
  std::string_view sender{};                       ///< Mbox: of the separator.
  std::optional<std::chrono::sys_seconds> date{};  ///< Mbox: of the separator; absent for now.
  std::optional<std::string_view> flags{};         ///< Maildir: absent for a new message.
};

class MAILTREE_API MailWriter {
 public:
  MailWriter() = default;
  MailWriter(const MailWriter&) = delete;
  MailWriter& operator=(const MailWriter&) = delete;
  virtual ~MailWriter() = default;

  virtual Result<void> add(std::string_view message, const Delivery& delivery = {}) = 0;
  virtual Result<void> flush() = 0;
};

using MailWriterPtr = std::unique_ptr<MailWriter>;

/// How long other programs may hold the lock of an mbox.
inline constexpr std::chrono::milliseconds kLockWait{30'000};

struct MboxWriterOptions {
  std::chrono::milliseconds lockWait = kLockWait;  ///< How long to wait for other programs.
};

/// Appends to an mbox (mboxrd), which is created when absent.
MAILTREE_API Result<MailWriterPtr> openMboxWriter(const std::string& path,
                                                  const MboxWriterOptions& options = {});
/// Writes the same to a descriptor, which is borrowed and not locked, such as standard output.
MAILTREE_API Result<MailWriterPtr> openMboxStream(int descriptor, const std::string& name);
/// Delivers to a Maildir, which is created when absent.
MAILTREE_API Result<MailWriterPtr> openMaildirWriter(const std::string& path);
/// Writes files 000001.eml and so on; counts on from those in the folder, which is created when absent.
MAILTREE_API Result<MailWriterPtr> openFolderWriter(const std::string& path);

}  // namespace mailtree
