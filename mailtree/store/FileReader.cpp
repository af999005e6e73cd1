#include "mailtree/store/FileReader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "mailtree/store/SourceReader.h"

namespace mailtree {
namespace {

/// Linux reads no more at once.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(m_fd, other.m_fd);
  return *this;
}

Descriptor::~Descriptor() {
  if (m_fd >= 0) ::close(m_fd);
}

DescriptorStream::DescriptorStream(Descriptor file, std::string path, std::string before,
                                   const Cancel* cancel)
    : m_file(std::move(file)), m_path(std::move(path)), m_before(std::move(before)), m_cancel(cancel) {}

/// False when it was cancelled. No signal needs to reach this thread for that.
bool DescriptorStream::waitForBytes() const noexcept {
  constexpr int kPatience = 100;  // milliseconds
  pollfd wanted{m_file.get(), POLLIN, 0};
  while (!*m_cancel)
    if (const int ready = ::poll(&wanted, 1, kPatience); ready > 0 || (ready < 0 && errno != EINTR))
      return true;
  return false;
}

Result<std::size_t> DescriptorStream::read(char* out, std::size_t size) {
  if (m_given < m_before.size()) {
    const std::size_t given = m_before.copy(out, size, m_given);
    m_given += given;
    return given;
  }
  for (;;) {
    if (m_cancel && !waitForBytes()) return Error{ErrorCode::unreadable, "reading was cancelled", m_path};
    const ssize_t got = ::read(m_file.get(), out, std::min(size, kMostAtOnce));
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno != EINTR) return unreadable(m_path, errno);
  }
}

FileReader::FileReader(Descriptor file, std::string path, std::uint64_t size)
    : m_file(std::move(file)), m_path(std::move(path)), m_size(size) {}

Result<void> FileReader::readAt(std::uint64_t offset, char* out, std::size_t size) const {
  while (size > 0) {
    const ssize_t got = ::pread(m_file.get(), out, std::min(size, kMostAtOnce), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return unreadable(m_path, errno);
    if (got == 0) return Error{ErrorCode::unreadable, "became shorter while it was read", m_path};
    out += got;
    offset += static_cast<std::uint64_t>(got);
    size -= static_cast<std::size_t>(got);
  }
  return {};
}

std::uint64_t FileReader::dataFrom(std::uint64_t offset) const noexcept {
#ifdef SEEK_DATA
  // pread does not use the position that this moves.
  const off_t data = ::lseek(m_file.get(), static_cast<off_t>(offset), SEEK_DATA);
  if (data >= 0) return std::clamp(static_cast<std::uint64_t>(data), offset, m_size);
  struct stat now {};
  const bool isRestHole =
      errno == ENXIO && ::fstat(m_file.get(), &now) == 0 && static_cast<std::uint64_t>(now.st_size) >= m_size;
  if (isRestHole) return m_size;
#endif
  return offset;
}

Result<Descriptor> openToRead(const std::string& path, const Cancel* cancel) {
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | (cancel ? O_NONBLOCK : 0)));
  if (!file) return unreadable(path, errno);
  struct stat what {};
  if (::fstat(file.get(), &what) != 0) return unreadable(path, errno);
  if (S_ISDIR(what.st_mode)) return unreadable(path, EISDIR);
  if (cancel && ::fcntl(file.get(), F_SETFL, O_RDONLY) != 0) return unreadable(path, errno);
  return file;
}

}  // namespace mailtree
