#include "mailtree/store/MailboxLock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <thread>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Platform.h"
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

std::string hostWord() {
  StringBuffer host;
  Psdk::getComputerName(host);
  std::string word(host.view().empty() ? "localhost" : host.view());
  std::ranges::replace_if(
      word, [](char c) { return c == '/' || c == ':' || isSpaceAscii(c) || isControlAscii(c); }, '_');
  return word;
}

MailboxLock::Attempt MailboxLock::tryDotLock() {
  m_dotLockFile = Descriptor(::open(m_dotLock.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (m_dotLockFile) {
    note(0, 0);
    return Attempt::done;
  }
  if (errno == EACCES || errno == EPERM || errno == EROFS) return Attempt::done;
  if (errno != EEXIST) return Attempt::failed;
  if (takeOver()) return Attempt::done;
  removeStale(m_dotLock);
  errno = EEXIST;
  return Attempt::busy;
}

/// Takes over the lock of a process of this host that is gone. It held the other lock too, which is ours now,
/// so nobody who takes both is about to do the same.
bool MailboxLock::takeOver() {
  Descriptor file(::open(m_dotLock.c_str(), O_RDWR | O_CLOEXEC));
  struct stat what {};
  char text[512] = {}, host[256] = {};
  if (!file || ::fstat(file.get(), &what) != 0 || ::read(file.get(), text, sizeof text - 1) <= 0)
    return false;
  long owner = 0;
  unsigned long long before = 0, after = 0;
  // NOLINTNEXTLINE(cert-err34-c): a number that is too large is no process, and no size of a file
  const bool isOurs = std::sscanf(text, "%ld mailtree %255s %llu %llu", &owner, host, &before, &after) == 4;
  const bool isGone =
      isOurs && owner > 0 && host == m_host && ::kill(static_cast<pid_t>(owner), 0) != 0 && errno == ESRCH;
  if (!isGone) return false;
  m_dotLockFile = std::move(file);
  if (after > before) m_unfinished = Append{.before = before, .after = after, .noted = what.st_mtime};
  return true;
}

/// The number of the process comes first, because other programs look at it. A lock that does not say what it
/// should is one too.
void MailboxLock::note(std::uint64_t before, std::uint64_t after) noexcept {
  if (!m_dotLockFile) return;
  char text[512];
  const int size = std::snprintf(
      text, sizeof text, "%ld\nmailtree %.255s %llu %llu\n", static_cast<long>(::getpid()), m_host.c_str(),
      static_cast<unsigned long long>(before), static_cast<unsigned long long>(after));
  const bool isWritten = ::pwrite(m_dotLockFile.get(), text, static_cast<std::size_t>(size), 0) == size;
  if (!isWritten || ::ftruncate(m_dotLockFile.get(), size) != 0) return;
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
  m_host = hostWord();
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
  if (m_dotLockFile) ::unlink(m_dotLock.c_str());
  if (m_file >= 0) setLock(m_file, F_UNLCK);
  m_dotLockFile = {};
  m_file = -1;
}

}  // namespace mailtree
