#include "cli/exporting/resumable_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace mailtree::cli {
namespace {

constexpr std::size_t kBuffer = std::size_t{1} << 20;
constexpr std::uint64_t kSaveBytes = std::uint64_t{64} << 20;
constexpr std::chrono::seconds kSaveTime{5};
constexpr std::string_view kJournalHead = "mailtree export 1 ";

bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool isSpecial(const std::string& path) {
  struct stat what {};
  return ::stat(path.c_str(), &what) == 0 && !S_ISREG(what.st_mode);
}

bool isFileOf(const std::string& path, int file) {
  struct stat named {
  }, opened{};
  return ::stat(path.c_str(), &named) == 0 && ::fstat(file, &opened) == 0 && named.st_ino == opened.st_ino;
}

/// A new name is on disk only when its folder is.
void syncFolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  const int fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

/// A name with a line break must not look like two lines of the journal.
std::string onOneLine(std::string name) {
  for (char& c : name)
    if (c == '\n' || c == '\r') c = ' ';
  return name;
}

}  // namespace

ResumableFile::~ResumableFile() {
  if (m_file >= 0) ::close(m_file);
  if (m_journal >= 0) ::close(m_journal);
}

Error ResumableFile::failed(const std::string& path) const {
  return {ErrorCode::unwritable, std::generic_category().message(errno), path};
}

Result<void> ResumableFile::open(const std::string& path, const std::string& key, Begin begin) {
  m_path = path;
  m_part = path + ".part";
  m_journalPath = path + ".journal";
  m_keepsJournal = begin == Begin::resume;
  const bool isInterrupted = exists(m_part);
  if (isSpecial(m_path)) return Error{ErrorCode::unwritable, "is not a regular file", m_path};
  if (begin == Begin::resume && exists(m_path) && !isInterrupted) return openFinished(key);
  if (begin != Begin::force && exists(m_path))
    return Error{ErrorCode::unwritable, "already exists; --force overwrites it", m_path};
  if (begin == Begin::fresh && isInterrupted)
    return Error{ErrorCode::unwritable,
                 "an export was interrupted here; --resume goes on with it, --force begins anew", m_path};
  m_file = ::open(m_part.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (m_file < 0) return failed(m_part);
  // A file that was finished between the two calls has another name now.
  if (::flock(m_file, LOCK_EX | LOCK_NB) != 0 || !isFileOf(m_part, m_file))
    return Error{ErrorCode::unwritable, "another process writes to it", m_part};
  if (begin == Begin::resume && isInterrupted)
    if (Result<void> read = readJournal(key); !read) return read;
  if (::ftruncate(m_file, static_cast<off_t>(m_bytes)) != 0 || ::lseek(m_file, 0, SEEK_END) < 0)
    return failed(m_part);
  return beginJournal(key);
}

/// FILE is there: it has to be that of this call.
Result<void> ResumableFile::openFinished(const std::string& key) {
  if (!exists(m_journalPath))
    return Error{ErrorCode::unwritable, "already exists, and no journal says of what; --force overwrites it",
                 m_path};
  m_isComplete = true;
  return readJournal(key);
}

/// Only lines that are whole count: the last one may be cut off. Nothing is done yet without a journal.
Result<void> ResumableFile::readJournal(const std::string& key) {
  std::ifstream file(m_journalPath, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  std::string line;
  if (!std::getline(text, line) || text.eof()) return {};
  if (line != std::string(kJournalHead) + key)
    return Error{ErrorCode::badValue, "was begun with other sources or options", m_journalPath};
  while (std::getline(text, line) && !text.eof()) {
    std::istringstream fields(line);
    std::uint64_t messages = 0, unreadable = 0, bytes = 0;
    if (!(fields >> messages >> unreadable >> bytes)) break;
    m_messages = messages;
    m_unreadable = unreadable;
    m_bytes = bytes;
    m_lastName = line.substr(std::min(line.size(), static_cast<std::size_t>(fields.tellg()) + 1));
  }
  std::error_code error;
  const std::string& written = m_isComplete ? m_path : m_part;
  if (std::filesystem::file_size(written, error) < m_bytes || error)
    return Error{ErrorCode::badValue, "is shorter than its journal says", written};
  return {};
}

/// Written anew, with one line for what is done, so that it stays small.
Result<void> ResumableFile::beginJournal(const std::string& key) {
  const std::string temporary = m_journalPath + ".new";
  m_journal = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (m_journal < 0) return failed(temporary);
  std::string text = std::string(kJournalHead) + key + "\n";
  if (m_messages > 0) text += journalLine();
  if (!writeAll(m_journal, text) || ::fdatasync(m_journal) != 0 ||
      ::rename(temporary.c_str(), m_journalPath.c_str()) != 0)
    return failed(m_journalPath);
  syncFolderOf(m_journalPath);
  return {};
}

std::string ResumableFile::journalLine() const {
  return std::to_string(m_messages) + " " + std::to_string(m_unreadable) + " " + std::to_string(m_bytes) +
         " " + m_lastName + "\n";
}

Result<void> ResumableFile::addUnreadable(const std::string& name) {
  ++m_unreadable;
  ++m_unsaved;  // so that it is saved even if nothing else is
  return add({}, name);
}

Result<void> ResumableFile::add(std::string_view record, const std::string& name) {
  m_buffer += record;
  m_unsaved += record.size();
  m_lastName = onOneLine(name);
  ++m_messages;
  return m_buffer.size() < kBuffer ? Result<void>() : write();
}

bool ResumableFile::isLast(const std::string& name) const { return onOneLine(name) == m_lastName; }

bool ResumableFile::isDue() const {
  return m_unsaved >= kSaveBytes || std::chrono::steady_clock::now() - m_saved >= kSaveTime;
}

Result<void> ResumableFile::write() {
  if (!writeAll(m_file, m_buffer)) return failed(m_part);
  m_bytes += m_buffer.size();
  m_buffer.clear();
  return {};
}

Result<void> ResumableFile::save() {
  m_saved = std::chrono::steady_clock::now();
  if (m_unsaved == 0) return {};
  if (Result<void> written = write(); !written) return written;
  if (::fdatasync(m_file) != 0) return failed(m_part);
  if (!writeAll(m_journal, journalLine()) || ::fdatasync(m_journal) != 0) return failed(m_journalPath);
  m_unsaved = 0;
  return {};
}

Result<void> ResumableFile::finish() {
  ++m_unsaved;
  if (Result<void> saved = save(); !saved) return saved;
  if (::rename(m_part.c_str(), m_path.c_str()) != 0) return failed(m_path);
  syncFolderOf(m_path);
  if (!m_keepsJournal) ::unlink(m_journalPath.c_str());
  return {};
}

}  // namespace mailtree::cli
