#include "mailtree/store/MailboxLock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <thread>

#include "mailtree/store/SourceReader.h"

namespace mailtree {
namespace {

constexpr std::chrono::milliseconds kFirstPause{5}, kLongestPause{500};
/// Programs renew a lock that they hold longer, or remove it.
constexpr std::time_t kStaleSeconds = 300;

#if defined(F_OFD_SETLK)
// Belongs to this open file: the others would be lost when any descriptor of the file is closed, and do not
// exclude threads.
constexpr int kSetLock = F_OFD_SETLK;
#else
constexpr int kSetLock = F_SETLK;
#endif

bool setLock(int file, short type) noexcept {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return ::fcntl(file, kSetLock, &lock) == 0;
}

/// Removes a lock that a program left long ago.
void removeStale(const std::string& dotLock) noexcept {
  struct stat what {};
  const bool isStale =
      ::stat(dotLock.c_str(), &what) == 0 && std::time(nullptr) - what.st_mtime > kStaleSeconds;
  if (isStale) ::unlink(dotLock.c_str());
}

}  // namespace

MailboxLock::Attempt MailboxLock::tryDotLock() {
  const int created = ::open(m_dotLock.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0444);
  if (created >= 0) {
    const Descriptor file(created);
    const std::string owner = std::to_string(::getpid()) + "\n";
    // A lock that does not say whose it is, is one too.
    [[maybe_unused]] const ssize_t written = ::write(file.get(), owner.data(), owner.size());
    m_hasDotLock = true;
    return Attempt::done;
  }
  if (errno == EACCES || errno == EPERM || errno == EROFS) return Attempt::done;
  if (errno != EEXIST) return Attempt::failed;
  removeStale(m_dotLock);
  return Attempt::busy;
}

MailboxLock::Attempt MailboxLock::tryOnce() {
  if (!setLock(m_file, F_WRLCK)) return errno == EAGAIN || errno == EACCES ? Attempt::busy : Attempt::failed;
  const Attempt attempt = tryDotLock();
  const int error = errno;
  // Who waits for the second lock must not hold the first: others take them in the opposite order.
  if (attempt != Attempt::done) setLock(m_file, F_UNLCK);
  errno = error;
  return attempt;
}

Result<void> MailboxLock::acquire(int file, const std::string& path, std::chrono::milliseconds wait) {
  const auto deadline = std::chrono::steady_clock::now() + wait;
  m_file = file;
  m_path = path;
  m_dotLock = path + ".lock";
  for (auto pause = kFirstPause;; pause = std::min(2 * pause, kLongestPause)) {
    const Attempt attempt = tryOnce();
    if (attempt == Attempt::done) return {};
    m_file = attempt == Attempt::failed ? -1 : m_file;
    if (attempt == Attempt::failed) return unwritable(path, errno);
    if (std::chrono::steady_clock::now() >= deadline) break;
    std::this_thread::sleep_for(pause);
  }
  m_file = -1;
  return Error{ErrorCode::unwritable, "is locked by another program", path};
}

void MailboxLock::release() noexcept {
  if (m_hasDotLock) ::unlink(m_dotLock.c_str());
  if (m_file >= 0) setLock(m_file, F_UNLCK);
  m_hasDotLock = false;
  m_file = -1;
}

}  // namespace mailtree
