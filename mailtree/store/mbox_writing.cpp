// store/mbox_writing.cpp - messages appended to an mbox, or written to a stream as one.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "mailtree/store/MailWriter.h"
#include "mailtree/store/MailboxLock.h"
#include "mailtree/store/SourceReader.h"
#include "mailtree/store/guard.h"
#include "mailtree/store/mbox_quoting.h"
#include "mailtree/store/mbox_separator.h"

namespace mailtree {
namespace {

/// Written at once when so much has gathered.
constexpr std::size_t kBatchBytes = std::size_t{1} << 20;

std::chrono::sys_seconds now() {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

Result<void> writeAll(int file, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return unwritable(path, errno);
    bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  return {};
}

/// Gathers entries, and writes them when there are many.
class EntryWriter : public MailWriter {
 public:
  explicit EntryWriter(std::string path) : m_path(std::move(path)) {}

  Result<void> add(std::string_view message, const Delivery& delivery) override {
    return guarded<void>([&]() -> Result<void> {
      const std::size_t before = m_entries.size();
      try {
        appendMboxEntry(message, delivery.sender, delivery.date ? *delivery.date : now(), m_entries);
      } catch (...) {
        m_entries.resize(before);
        throw;
      }
      return m_entries.size() < kBatchBytes ? Result<void>() : writeEntries();
    });
  }

 protected:
  /// Writes m_entries, or nothing, and empties it.
  virtual Result<void> writeEntries() = 0;

  std::string m_path;
  std::string m_entries;
};

class MboxWriter final : public EntryWriter {
 public:
  MboxWriter(std::string path, const MboxWriterOptions& options)
      : EntryWriter(std::move(path)), m_options(options) {}

  /// Opens the file, and looks whether it is an mbox. What a killed process left is cut off first, also
  /// because somebody may read the mailbox next to learn what is in it.
  Result<void> open() {
    if (Result<void> opened = openFile(); !opened) return opened;
    if (Result<void> done = recover(); !done) return done;
    return judge();
  }

  Result<void> flush() override {
    return guarded<void>([&]() -> Result<void> {
      if (Result<void> written = writeEntries(); !written) return written;
      if (::fsync(m_file.get()) != 0) return unwritable(m_path, errno);
      return {};
    });
  }

 private:
  Result<void> writeEntries() override {
    if (m_entries.empty()) return {};
    MailboxLock lock;
    if (Result<void> locked = lockFile(lock); !locked) return locked;
    if (Result<void> cut = cutUnfinished(lock); !cut) return cut;
    const off_t before = ::lseek(m_file.get(), 0, SEEK_END);
    if (before < 0) return unwritable(m_path, errno);
    const std::string_view lineEnds = missingLineEnds(before);
    const auto size = static_cast<std::uint64_t>(before);
    lock.note(size, size + lineEnds.size() + m_entries.size());
    Result<void> written = writeAll(m_file.get(), lineEnds, m_path);
    if (written) written = writeAll(m_file.get(), m_entries, m_path);
    if (!written && ::ftruncate(m_file.get(), before) != 0) return unwritable(m_path, errno);
    if (written) m_entries.clear();
    return written;
  }

  /// Cuts off what a process that ended in the middle of writing left, unless somebody has written since.
  Result<void> cutUnfinished(MailboxLock& lock) {
    constexpr std::int64_t kWriteSeconds = 10;
    const std::optional<MailboxLock::Append> append = lock.takeUnfinished();
    struct stat what {};
    if (!append) return {};
    if (::fstat(m_file.get(), &what) != 0) return unwritable(m_path, errno);
    const auto size = static_cast<std::uint64_t>(what.st_size);
    const bool isCut =
        append->before < size && size < append->after && what.st_mtime <= append->noted + kWriteSeconds;
    if (!isCut || ::ftruncate(m_file.get(), static_cast<off_t>(append->before)) == 0) return {};
    return unwritable(m_path, errno);
  }

  Result<void> openFile() {
    m_file = Descriptor(::open(m_path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    struct stat what {};
    if (!m_file || ::fstat(m_file.get(), &what) != 0) return unwritable(m_path, errno);
    if (!S_ISREG(what.st_mode)) return Error{ErrorCode::unwritable, "is not a regular file", m_path};
    return {};
  }

  Result<void> recover() {
    if (::access((m_path + ".lock").c_str(), F_OK) != 0) return {};
    MailboxLock lock;
    if (Result<void> locked = lockFile(lock); !locked) return locked;
    return cutUnfinished(lock);
  }

  Result<void> judge() const {
    char start[kJudgedBytes];
    const ssize_t size = ::pread(m_file.get(), start, sizeof start, 0);
    if (size < 0) return unwritable(m_path, errno);
    std::string_view text(start, static_cast<std::size_t>(size));
    text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
    if (!text.empty() && readFirstLine(text).size == 0)
      return Error{ErrorCode::unwritable, "is not an mbox; nothing is appended to it", m_path};
    return {};
  }

  /// Locks the file that has the name now: programs that delete messages may write a new one and rename it.
  Result<void> lockFile(MailboxLock& lock) {
    for (;;) {
      if (Result<void> locked = lock.acquire(m_file.get(), m_path, m_options.lockWait); !locked)
        return locked;
      struct stat mine {
      }, named{};
      const bool isSame = ::fstat(m_file.get(), &mine) == 0 && ::stat(m_path.c_str(), &named) == 0 &&
                          mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
      if (isSame) return {};
      lock.release();
      if (Result<void> opened = openFile(); !opened) return opened;
      if (Result<void> judged = judge(); !judged) return judged;
    }
  }

  /// What the last message lacks to be followed by another one.
  std::string_view missingLineEnds(off_t size) const noexcept {
    char bytes[kBytesBefore];
    const off_t from = std::max<off_t>(size - static_cast<off_t>(sizeof bytes), 0);
    const ssize_t got = ::pread(m_file.get(), bytes, sizeof bytes, from);
    const std::string_view end(bytes, got < 0 ? 0 : static_cast<std::size_t>(got));
    return endsWithEmptyLine(end) ? "" : end.ends_with('\n') ? "\n" : "\n\n";
  }

  MboxWriterOptions m_options;
  Descriptor m_file;
};

class MboxStream final : public EntryWriter {
 public:
  MboxStream(int descriptor, std::string name) : EntryWriter(std::move(name)), m_descriptor(descriptor) {}
  Result<void> flush() override {
    return guarded<void>([&] { return writeEntries(); });
  }

 private:
  Result<void> writeEntries() override {
    Result<void> written = writeAll(m_descriptor, m_entries, m_path);
    m_entries.clear();
    return written;
  }

  int m_descriptor;
};

}  // namespace

Result<MailWriterPtr> openMboxWriter(const std::string& path, const MboxWriterOptions& options) {
  return guarded<MailWriterPtr>([&]() -> Result<MailWriterPtr> {
    auto writer = std::make_unique<MboxWriter>(path, options);
    if (Result<void> opened = writer->open(); !opened) return std::move(opened).error();
    return MailWriterPtr(std::move(writer));
  });
}

Result<MailWriterPtr> openMboxStream(int descriptor, const std::string& name) {
  return guarded<MailWriterPtr>([&]() -> Result<MailWriterPtr> {
    return MailWriterPtr(std::make_unique<MboxStream>(descriptor, name));
  });
}

}  // namespace mailtree
