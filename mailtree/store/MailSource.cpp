#include "mailtree/store/MailSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "mailtree/store/FileReader.h"
#include "mailtree/store/FolderReader.h"
#include "mailtree/store/MboxReader.h"
#include "mailtree/store/archive.h"
#include "mailtree/store/guard.h"
#include "mailtree/store/header_end.h"
#include "mailtree/store/maildir.h"

namespace mailtree {
namespace {

using ReaderPtr = std::unique_ptr<SourceReader>;

/// Larger values would overflow when a separator is added.
constexpr std::uint64_t kLargestLimit = std::uint64_t{1} << 48;

Error hostError(ErrorCode code, const char* what, std::string_view path, int error) {
  return {code, std::string(what) + ": " + std::generic_category().message(error), std::string(path)};
}

std::string hasOnly(std::uint64_t count) {
  return "has only " + std::to_string(count) + (count == 1 ? " message" : " messages");
}

SourceOptions checked(SourceOptions options) noexcept {
  options.largest = std::min(options.largest, kLargestLimit);
  return options;
}

template <class Reader>
Result<ReaderPtr> begun(std::unique_ptr<Reader> reader) {
  if (Result<void> done = reader->begin(); !done) return std::move(done).error();
  return ReaderPtr(std::move(reader));
}

Result<ReaderPtr> openFile(std::shared_ptr<FileReader> file, const SourceOptions& options) {
  std::string magic(static_cast<std::size_t>(std::min<std::uint64_t>(file->size(), kMagicBytes)), '\0');
  if (Result<void> done = file->readAt(0, magic.data(), magic.size()); !done) return std::move(done).error();
  if (beginsArchive(magic)) return openArchive(std::move(file), options);
  return begun(std::make_unique<MboxReader>(std::move(file), options));
}

/// Whether the bytes cannot begin a file that is one message.
bool beginsMailbox(std::string_view bytes) noexcept {
  bytes.remove_prefix(std::min(bytes.find_first_not_of("\r\n"), bytes.size()));
  return bytes.starts_with("From ");
}

/// The first bytes of a file or stream, which tell what it is; with headersOnly all of a message's header.
Result<std::string> readStart(const Descriptor& input, const std::string& path, const SourceOptions& options,
                              const Cancel* cancel) {
  constexpr std::size_t kHeaderChunk = std::size_t{16} << 10;
  Descriptor copy(::fcntl(input.get(), F_DUPFD_CLOEXEC, 0));
  if (!copy) return unreadable(path, errno);
  DescriptorStream stream(std::move(copy), path, {}, cancel);
  std::string start;
  HeaderEnd header;
  for (;;) {
    const bool isKnown =
        start.size() >= kMagicBytes && (!options.headersOnly || beginsArchive(start) || beginsMailbox(start));
    if (isKnown || (options.headersOnly && header.isIn(start))) return start;
    const std::size_t before = start.size();
    start.resize(options.headersOnly ? before + kHeaderChunk : kMagicBytes);
    const Result<std::size_t> got = stream.read(start.data() + before, start.size() - before);
    if (!got) return got.error();
    start.resize(before + *got);
    if (*got == 0) return start;
  }
}

bool isHeaderOfMessage(std::string_view start, const SourceOptions& options) noexcept {
  return options.headersOnly && !beginsArchive(start) && !beginsMailbox(start);
}

Result<ReaderPtr> openStream(Descriptor input, const std::string& path, std::string start,
                             const SourceOptions& options, const Cancel* cancel) {
  const bool isArchive = beginsArchive(start);
  auto stream = std::make_unique<DescriptorStream>(std::move(input), path, std::move(start), cancel);
  if (isArchive) return openArchive(std::move(stream), path, options);
  return begun(std::make_unique<MboxReader>(std::move(stream), path, options));
}

/// A file that is redirected to standard input can be read like any other, unless some of it was read before.
bool canSeek(const Descriptor& input, const struct stat& what) noexcept {
  return S_ISREG(what.st_mode) && ::lseek(input.get(), 0, SEEK_CUR) == 0;
}

Result<ReaderPtr> openDescriptor(Descriptor input, const std::string& path, const SourceOptions& options,
                                 const Cancel* cancel) {
  struct stat what {};
  if (::fstat(input.get(), &what) != 0) return unreadable(path, errno);
  const bool isFile = canSeek(input, what);
  std::string start;
  if (!isFile || options.headersOnly) {
    Result<std::string> read = readStart(input, path, options, cancel);
    if (!read) return std::move(read).error();
    start = *std::move(read);
  }
  if (isHeaderOfMessage(start, options))
    return begun(std::make_unique<MboxReader>(std::make_unique<TextStream>(std::move(start)), path, options));
  if (!isFile) return openStream(std::move(input), path, std::move(start), options, cancel);
  const auto size = static_cast<std::uint64_t>(what.st_size);
  return openFile(std::make_shared<FileReader>(std::move(input), path, size), options);
}

Result<ReaderPtr> openPath(const std::string& path, const SourceOptions& options, const Cancel* cancel) {
  if (path == "-") {
    Descriptor input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!input) return unreadable(path, errno);
    return openDescriptor(std::move(input), path, options, cancel);
  }
  struct stat what {};
  if (::stat(path.c_str(), &what) != 0) return unreadable(path, errno);
  if (S_ISDIR(what.st_mode)) return begun(std::make_unique<FolderReader>(path));
  Result<Descriptor> input = openToRead(path, cancel);
  if (!input) return std::move(input).error();
  return openDescriptor(*std::move(input), path, options, cancel);
}

/// Opens the file of a message, which another program may have renamed.
Result<Descriptor> openMessage(SourceMessage& message) {
  Result<Descriptor> file = openToRead(message.path);
  if (file || !message.isInMaildir) return file;
  std::optional<std::string> renamed = findRenamed(message.path);
  if (!renamed) return file;
  message.path = *std::move(renamed);
  message.flags = maildirFlags(message.path);
  return openToRead(message.path);
}

Result<void> readFile(SourceMessage& message, const SourceOptions& options) {
  Result<Descriptor> file = openMessage(message);
  if (!file) return std::move(file).error();
  struct stat what {};
  if (::fstat(file->get(), &what) != 0) return unreadable(message.path, errno);
  if (!S_ISREG(what.st_mode)) return Error{ErrorCode::unreadable, "is not a regular file", message.path};
  if (options.headersOnly) {
    Result<std::string> start = readStart(*file, message.path, options, /*cancel=*/nullptr);
    if (!start) return std::move(start).error();
    if (isHeaderOfMessage(*start, options)) {
      message.bytes = *std::move(start);
      return {};
    }
  }
  const auto size = static_cast<std::uint64_t>(what.st_size);
  if (size > options.largest) return tooLarge(message.path, size);
  auto reader = std::make_shared<FileReader>(*std::move(file), message.path, size);
  message.bytes.resize(size);
  if (Result<void> done = reader->readAt(0, message.bytes.data(), size); !done) return done;
  if (!beginsArchive(std::string_view(message.bytes).substr(0, kMagicBytes))) return {};
  Result<ReaderPtr> archive = openArchive(std::move(reader), options);
  if (!archive) return std::move(archive).error();
  SourceMessage inside;
  const Result<bool> found = (*archive)->next(inside);
  if (!found) return found.error();
  if (!*found) inside.bytes.clear();
  if (inside.error) return *std::move(inside.error);
  message.bytes = std::move(inside.bytes);
  return {};
}

}  // namespace

void clearMessage(SourceMessage& message) noexcept {
  message.path.clear();
  message.entry.clear();
  message.number = message.offset = message.length = 0;
  message.folder.clear();
  message.isInMaildir = message.sharesFile = message.hasBytes = false;
  message.flags.reset();
  message.sender.clear();
  message.date.reset();
  message.bytes.clear();
  message.error.reset();
}

std::string nameOf(const SourceMessage& message) {
  if (!message.sharesFile) return message.path;
  const bool isCounted = message.number > 0;
  return message.path + (isCounted ? '#' : '@') + std::to_string(isCounted ? message.number : message.offset);
}

Error unreadable(std::string_view path, int error) {
  return hostError(ErrorCode::unreadable, "cannot be read", path, error);
}

Error unwritable(std::string_view path, int error) {
  return hostError(ErrorCode::unwritable, "cannot be written", path, error);
}

Error tooLarge(std::string_view path, std::uint64_t size) {
  return {ErrorCode::tooLarge, "the message is too large: " + std::to_string(size) + " bytes",
          std::string(path)};
}

MailSource::MailSource(ReaderPtr reader) : m_reader(std::move(reader)) {}
MailSource::MailSource(MailSource&&) noexcept = default;
MailSource& MailSource::operator=(MailSource&&) noexcept = default;
MailSource::~MailSource() = default;

Result<MailSource> MailSource::open(const std::string& path, const SourceOptions& options) {
  return open(path, options, /*cancel=*/nullptr);
}

Result<MailSource> MailSource::open(const std::string& path, const SourceOptions& options,
                                    const std::atomic<bool>& cancel) {
  return open(path, options, &cancel);
}

Result<MailSource> MailSource::open(const std::string& path, const SourceOptions& options,
                                    const std::atomic<bool>* cancel) {
  return guarded<MailSource>([&]() -> Result<MailSource> {
    Result<ReaderPtr> reader = openPath(path, checked(options), cancel);
    if (!reader) return std::move(reader).error();
    return MailSource(*std::move(reader));
  });
}

MailSource::Kind MailSource::kind() const noexcept { return m_reader->kind(); }
const Error* MailSource::error() const noexcept { return m_error ? &*m_error : nullptr; }

bool MailSource::next(SourceMessage& message) {
  const Result<bool> given = guarded<bool>([&]() -> Result<bool> {
    if (m_error) return false;
    for (; m_turn != m_part; m_turn = (m_turn + 1) % m_parts)
      if (Result<bool> passed = m_reader->pass(); !passed || !*passed) return passed;
    m_turn = (m_turn + 1) % m_parts;
    ++m_passed;
    return m_reader->next(message);
  });
  if (!given) m_error = given.error();
  return given && *given;
}

Result<void> MailSource::seekNumber(std::uint64_t number) {
  return guarded<void>([&]() -> Result<void> {
    if (number <= m_passed) return Error{ErrorCode::badValue, "that message was passed", {}};
    for (; m_passed + 1 < number; ++m_passed) {
      const Result<bool> isThere = m_reader->pass();
      if (!isThere) return isThere.error();
      if (!*isThere) return Error{ErrorCode::notFound, hasOnly(m_passed), {}};
    }
    return {};
  });
}

Result<void> MailSource::seekOffset(std::uint64_t offset) {
  return guarded<void>([&] { return m_reader->seekOffset(offset); });
}

Result<void> MailSource::takePart(std::uint64_t part, std::uint64_t parts) {
  if (part >= parts) return Error{ErrorCode::badValue, "there is no such part", {}};
  const Result<bool> isRange = guarded<bool>([&] { return m_reader->takeRange(part, parts); });
  if (!isRange) return isRange.error();
  if (!*isRange) m_part = part, m_parts = parts;
  return {};
}

Result<void> MailSource::takeBytes(std::uint64_t begin, std::uint64_t end) {
  const Result<bool> isRange = guarded<bool>([&] { return m_reader->takeBytes(begin, end); });
  if (!isRange) return isRange.error();
  if (!*isRange) return Error{ErrorCode::badValue, "only an uncompressed mbox has ranges of bytes", {}};
  return {};
}

Result<void> readMessage(SourceMessage& message, const SourceOptions& options) {
  if (message.error) return *message.error;
  if (message.hasBytes) return {};
  Result<void> done = guarded<void>([&] { return readFile(message, checked(options)); });
  if (done) {
    message.hasBytes = true;
    message.length = message.bytes.size();
  }
  if (!done) message.bytes.clear();
  return done;
}

}  // namespace mailtree
