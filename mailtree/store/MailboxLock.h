// store/MailboxLock.h - locks of an mbox against other programs. Private.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "mailtree/store/FileReader.h"

namespace mailtree {

/// The name of the host as one word that may be part of a file name.
std::string hostWord();

/// Holds both locks that mail programs use: one of fcntl on the file, then the file "NAME.lock", in the order
/// that others take them. In a folder where no file may be created, the first is all there is.
///
/// The second says what is appended while it is held. Whoever finds it left by a process that is gone takes
/// it over, and can cut off what was not finished.
class MailboxLock {
 public:
  MailboxLock() noexcept = default;
  MailboxLock(const MailboxLock&) = delete;
  MailboxLock& operator=(const MailboxLock&) = delete;
  ~MailboxLock() { release(); }

  /// Waits for other programs.
  Result<void> acquire(int file, const std::string& path, std::chrono::milliseconds wait);
  void release() noexcept;

  /// What is appended: from the first size of the mailbox to the second.
  struct Append {
    std::uint64_t before = 0, after = 0;
    std::int64_t noted = 0;  ///< When, in seconds as for files.
  };
  void note(std::uint64_t before, std::uint64_t after) noexcept;
  /// The append of a process that is gone; once after acquire().
  std::optional<Append> takeUnfinished() noexcept { return std::exchange(m_unfinished, std::nullopt); }

 private:
  enum class Attempt { done, busy, failed };
  Attempt tryOnce();
  Attempt tryDotLock();
  bool takeOver();

  int m_file = -1;
  std::string m_path, m_dotLock, m_host;
  Descriptor m_dotLockFile;  ///< While it is held.
  std::optional<Append> m_unfinished;
};

}  // namespace mailtree
