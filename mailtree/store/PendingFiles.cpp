#include "mailtree/store/PendingFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>

#include "mailtree/store/SourceReader.h"

namespace mailtree {
namespace {

/// From so many files on, bringing the whole file system to disk costs less than one call for each.
constexpr std::size_t kManyFiles = 16;

#if defined(__linux__)
constexpr bool kHasSyncfs = true;
#else
constexpr bool kHasSyncfs = false;
int syncfs(int file) noexcept { return ::fsync(file); }
#endif

/// Brings a file or folder to disk, or the file system that it is on. 0 or an errno.
int syncPath(const std::string& path, bool wholeFileSystem) noexcept {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return errno;
  return (wholeFileSystem ? syncfs(file.get()) : ::fsync(file.get())) == 0 ? 0 : errno;
}

int writeNew(const std::string& path, std::string_view bytes) noexcept {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) return errno;
  while (!bytes.empty()) {
    const ssize_t written = ::write(file.get(), bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return errno;
    bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  return 0;
}

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

}  // namespace

Result<void> PendingFiles::write(std::string temporary, std::string name, std::string_view bytes) {
  m_files.push_back({std::move(temporary), std::move(name)});
  const File& file = m_files.back();
  const int error = writeNew(file.temporary, bytes);
  if (error == 0) return {};
  Error reason = failed(file, error);
  if (error != EEXIST) ::unlink(file.temporary.c_str());
  m_files.pop_back();
  return reason;
}

Result<void> PendingFiles::sync() {
  const bool atOnce = kHasSyncfs && m_files.size() - m_done >= kManyFiles;
  for (std::size_t i = m_done; i < (atOnce ? m_done + 1 : m_files.size()); ++i)
    if (const int error = syncPath(m_files[i].temporary, atOnce)) return failed(m_files[i], error);
  return {};
}

/// Brings the new names to disk.
Result<void> PendingFiles::finish() {
  std::set<std::string> folders;
  for (const File& file : m_files) folders.insert(folderOf(file.name));
  m_files.clear();
  m_done = 0;
  for (const std::string& folder : folders)
    if (const int error = syncPath(folder, /*wholeFileSystem=*/false)) return unwritable(folder, error);
  return {};
}

/// 0 or an errno. A name that is taken is never replaced.
int PendingFiles::rename(const File& file) noexcept {
#if defined(RENAME_NOREPLACE)
  if (::renameat2(AT_FDCWD, file.temporary.c_str(), AT_FDCWD, file.name.c_str(), RENAME_NOREPLACE) == 0)
    return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
#endif
  if (::link(file.temporary.c_str(), file.name.c_str()) != 0) return errno;
  ::unlink(file.temporary.c_str());
  return 0;
}

Error PendingFiles::failed(const File& file, int error) { return unwritable(file.name, error); }

void PendingFiles::discard() noexcept {
  for (std::size_t i = m_done; i < m_files.size(); ++i) ::unlink(m_files[i].temporary.c_str());
}

}  // namespace mailtree
