#include "cli/support/line_spool.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace mailtree::cli {
namespace {

constexpr std::size_t kBlockBytes = std::size_t{1} << 20;

/// A file without a name, which goes away with the program; negative when there can be none.
int openTemporary() {
  std::error_code error;
  const std::string folder = std::filesystem::temp_directory_path(error).string();
  if (error) return -1;
  const int file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (file >= 0) return file;
  std::string name = folder + "/mailtree-XXXXXX";  // not every file system has files without a name
  const int named = ::mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) ::unlink(name.c_str());
  return named;
}

bool writeAt(int file, std::uint64_t offset, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t done = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(done));
    offset += static_cast<std::uint64_t>(done);
  }
  return true;
}

}  // namespace

LineSpool::~LineSpool() {
  if (m_file >= 0) ::close(m_file);
}

LineSpool::Place LineSpool::add(std::string_view line) {
  if (m_blocks.empty() || m_blocks.back().lines.size() + line.size() > kBlockBytes) addBlock();
  std::string& lines = m_blocks.back().lines;
  const Place place{static_cast<std::uint32_t>(m_blocks.size() - 1), static_cast<std::uint32_t>(lines.size()),
                    static_cast<std::uint32_t>(line.size())};
  lines += line;
  return place;
}

/// The memory of a block that went to the file is used again: freed, it would be filled with small things,
/// and each block would take new memory.
void LineSpool::addBlock() {
  std::string lines;
  if (!m_blocks.empty() && writeToFile(m_blocks.back())) lines = std::exchange(m_blocks.back().lines, {});
  lines.clear();
  lines.reserve(kBlockBytes);
  m_blocks.push_back({std::move(lines)});
}

bool LineSpool::writeToFile(Block& block) {
  if (m_file < 0 && !m_isFull) m_file = openTemporary();
  m_isFull = m_isFull || m_file < 0 || !writeAt(m_file, m_fileSize, block.lines);
  if (m_isFull) return false;
  block.fileOffset = m_fileSize;
  m_fileSize += block.lines.size();
  return true;
}

Result<void> LineSpool::read(const Place& place, std::string& line) const {
  const Block& block = m_blocks[place.block];
  if (!block.lines.empty()) {
    line.assign(block.lines, place.at, place.size);
    return {};
  }
  line.resize(place.size);
  for (std::size_t done = 0; done < line.size();) {
    const auto offset = static_cast<off_t>(block.fileOffset + place.at + done);
    const ssize_t got = ::pread(m_file, line.data() + done, line.size() - done, offset);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0)
      return Error{ErrorCode::unreadable, std::generic_category().message(got < 0 ? errno : EIO), {}};
    done += static_cast<std::size_t>(got);
  }
  return {};
}

}  // namespace mailtree::cli
