// store/MailboxLock.h - locks of an mbox against other programs. Private.
#pragma once

#include <chrono>
#include <string>

#include "mailtree/store/FileReader.h"

namespace mailtree {

/// Holds both locks that mail programs use: one of fcntl on the file, then the file "NAME.lock", in the order
/// that others take them. In a folder where no file may be created, the first is all there is.
class MailboxLock {
 public:
  MailboxLock() noexcept = default;
  MailboxLock(const MailboxLock&) = delete;
  MailboxLock& operator=(const MailboxLock&) = delete;
  ~MailboxLock() { release(); }

  /// Waits for other programs.
  Result<void> acquire(int file, const std::string& path, std::chrono::milliseconds wait);
  void release() noexcept;

 private:
  enum class Attempt { done, busy, failed };
  Attempt tryOnce();
  Attempt tryDotLock();

  int m_file = -1;
  std::string m_path, m_dotLock;
  bool m_hasDotLock = false;
};

}  // namespace mailtree
