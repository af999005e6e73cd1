#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "mailtree/base/Output.h"
#include "mailtree/base/Platform.h"
#include "mailtree/base/internal.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;
constexpr int kNameAttempts = 8;

/// Before the umask.
constexpr mode_t kUsual = 0666, kOwnerOnly = 0600;
constexpr mode_t kOwnerBits = 0700;

/// Names of temporary files, for a signal handler, which cannot wait for a lock. Names beyond its size are
/// removed only by their objects.
std::array<std::atomic<const char*>, 64> unfinished{};
static_assert(std::atomic<const char*>::is_always_lock_free);

void watch(const char* name) noexcept {
  for (auto& slot : unfinished)
    if (const char* none = nullptr; slot.compare_exchange_strong(none, name)) return;
}

void unwatch(const char* name) noexcept {
  for (auto& slot : unfinished)
    if (const char* mine = name; slot.compare_exchange_strong(mine, nullptr)) return;
}

int lastError() noexcept { return errno ? errno : EIO; }

/// Names of streams that are already open. They may lead to a regular file, which must not be replaced while
/// another process has it open.
bool namesOpenStream(std::string_view path) noexcept {
  static constexpr std::array<std::string_view, 4> kPrefixes = {"/dev/stdout", "/dev/stderr", "/dev/fd/",
                                                                "/proc/"};
  return std::any_of(kPrefixes.begin(), kPrefixes.end(),
                     [&](std::string_view p) { return path.starts_with(p); });
}

/// 0 when this process may write to an existing file, else the errno. Permission to replace a file in its
/// folder does not mean permission to change the file.
int mayWrite(const fs::path& file) noexcept {
  errno = 0;
  return FilePtr(std::fopen(file.c_str(), "r+be")) ? 0 : lastError();
}

/// A new name in the folder of `target`. Short, so it always fits.
std::string temporaryNameFor(const fs::path& target) {
  StringBuffer name(".mailtree-");
  UniqueIdSource::genUniqueId(name);
  name.append(".tmp");
  return (target.parent_path() / name.getString()).string();
}

/// Renames a complete file; 0 or an errno. Where rename would always replace an existing file, the file gets
/// a second link and loses the first.
int renameFile(const char* from, const char* to, bool mayReplace) noexcept {
  errno = 0;
  if (mayReplace) return std::rename(from, to) == 0 ? 0 : lastError();
#ifdef RENAME_NOREPLACE
  if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return lastError();
#endif
  if (::link(from, to) != 0) return lastError();
  ::unlink(from);
  return 0;
}

}  // namespace

FileOutput::~FileOutput() { discard(); }

bool FileOutput::open(const char* path, LogBase& log, Existing existing, Readers readers) {
  const LogContextExitor context(log, "openOutputFile", log.m_verboseLogging);
  discard();
  const int error = neverThrow(ENOMEM, [&] { return start(viewOf(path), existing, readers); });
  if (error == 0) return true;
  discard();
  setFailed();
  logHostError(log, path, error);
  return false;
}

/// Opens the stream for the bytes; 0 or an errno.
int FileOutput::start(std::string_view path, Existing existing, Readers readers) {
  m_path = path;
  m_buffer = std::make_unique<char[]>(kBufferSize);
  m_mayReplace = existing != Existing::refuse;

  const fs::path named(m_path);
  const bool follows = existing == Existing::replace;
  std::error_code error;
  const fs::file_status status = follows ? fs::status(named, error) : fs::symlink_status(named, error);
  if (fs::exists(status) && !m_mayReplace) return EEXIST;
  if (!fs::exists(status) || fs::is_symlink(status))
    return named.has_filename() ? startTemporary(m_path, readers == Readers::owner ? kOwnerOnly : kUsual)
                                : ENOENT;
  if (!fs::is_regular_file(status) || namesOpenStream(path))
    return follows ? openStream() : fs::is_directory(status) ? EISDIR : EEXIST;

  const fs::path target = follows ? fs::canonical(named, error) : named;
  if (error) return error.value();
  if (const int refused = mayWrite(target)) return refused;
  const auto before = static_cast<mode_t>(status.permissions() & fs::perms::all);
  return startReplacing(target.string(), readers == Readers::owner ? before & kOwnerBits : before);
}

/// The new file must not be readable by anyone who could not read the old one.
int FileOutput::startReplacing(const std::string& target, unsigned permissions) {
  if (const int failed = startTemporary(target, kOwnerOnly)) return failed;
  errno = 0;
  return ::fchmod(::fileno(m_file.get()), permissions) == 0 ? 0 : lastError();
}

int FileOutput::startTemporary(const std::string& target, unsigned permissions) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    m_temporaryPath = temporaryNameFor(target);
    watch(m_temporaryPath.c_str());  // registered before the file exists: a signal may come in between
    const int failed = createStream(permissions);
    if (!failed) {
      m_path = target;
      return 0;
    }
    forgetTemporary();
    if (failed != EEXIST) return failed;
  }
  return EEXIST;
}

int FileOutput::createStream(unsigned permissions) {
  errno = 0;
  const int descriptor =
      ::open(m_temporaryPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
  if (descriptor < 0) return lastError();
  if (const int failed = takeStream(::fdopen(descriptor, "wb"))) {
    ::close(descriptor);
    ::unlink(m_temporaryPath.c_str());
    return failed;
  }
  return 0;
}

/// Anything but a regular file is written to directly.
int FileOutput::openStream() {
  errno = 0;
  return takeStream(std::fopen(m_path.c_str(), "abe"));
}

int FileOutput::takeStream(std::FILE* stream) {
  if (!stream) return lastError();
  m_file.reset(stream);
  std::setvbuf(stream, m_buffer.get(), _IOFBF, kBufferSize);
  return 0;
}

bool FileOutput::put(std::string_view bytes, LogBase& log) {
  errno = 0;
  if (m_file && std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) == bytes.size()) return true;
  logHostError(log, m_path.c_str(), m_file ? lastError() : EBADF);
  return false;
}

bool FileOutput::commit(LogBase& log) {
  const LogContextExitor context(log, "commitOutputFile", log.m_verboseLogging);
  if (failed()) {  // the write that failed logged the reason
    discard();
    return false;
  }
  const int error = m_file ? finish() : EBADF;
  if (error == 0) return true;
  discard();
  setFailed();
  logHostError(log, m_path.c_str(), error);
  return false;
}

/// Closes the stream and renames the file; 0 or an errno.
int FileOutput::finish() noexcept {
  errno = 0;
  if (std::fclose(m_file.release()) != 0) return lastError();
  if (m_temporaryPath.empty()) return 0;
  if (const int failed = renameFile(m_temporaryPath.c_str(), m_path.c_str(), m_mayReplace)) return failed;
  forgetTemporary();
  return 0;
}

void FileOutput::discard() noexcept {
  m_file.reset();
  if (!m_temporaryPath.empty()) std::remove(m_temporaryPath.c_str());
  forgetTemporary();
}

void FileOutput::forgetTemporary() noexcept {
  unwatch(m_temporaryPath.c_str());
  m_temporaryPath.clear();
}

void FileOutput::removeUnfinished() noexcept {
  for (auto& slot : unfinished)
    if (const char* const name = slot.exchange(nullptr)) ::unlink(name);
}

}  // namespace mailtree
