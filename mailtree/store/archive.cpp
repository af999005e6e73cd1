#include "mailtree/store/archive.h"

#include <algorithm>
#include <array>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Object.h"
#include "mailtree/store/MboxReader.h"
#include "mailtree/store/maildir.h"

#if defined(MAILTREE_HAS_ARCHIVE)
#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <cstdio>
#endif

namespace mailtree {
namespace {

constexpr std::size_t kTarMagicAt = 257;

}  // namespace

bool beginsArchive(std::string_view bytes) noexcept {
  using namespace std::string_view_literals;
  // An empty zip has only its end.
  constexpr std::array kMagics = {"\x1F\x8B"sv, "BZh"sv, "\x28\xB5\x2F\xFD"sv, "PK\3\4"sv, "PK\5\6"sv};
  const auto begins = [bytes](std::string_view magic) { return bytes.starts_with(magic); };
  return std::ranges::any_of(kMagics, begins) ||
         bytes.substr(std::min(bytes.size(), kTarMagicAt)).starts_with("ustar");
}

#if !defined(MAILTREE_HAS_ARCHIVE)

namespace {

Error unsupported(std::string path) {
  return {ErrorCode::unreadable,
          "is compressed or an archive, and mailtree was built without libarchive to open it",
          std::move(path)};
}

}  // namespace

Result<std::unique_ptr<SourceReader>> openArchive(std::shared_ptr<FileReader> file, const SourceOptions&) {
  return unsupported(file->path());
}

Result<std::unique_ptr<SourceReader>> openArchive(std::unique_ptr<ByteStream>, std::string path,
                                                  const SourceOptions&) {
  return unsupported(std::move(path));
}

#else

namespace {

constexpr std::size_t kFeedBytes = std::size_t{64} << 10;

struct FreeArchive {
  void operator()(archive* opened) const noexcept { archive_read_free(opened); }
};
using ArchivePtr = std::unique_ptr<archive, FreeArchive>;

/// Gives the archive's bytes to libarchive. Only files have a size, and can be searched from their end as a
/// zip should be.
class Feed {
 public:
  explicit Feed(std::shared_ptr<FileReader> file) : m_file(std::move(file)), m_bytes(kFeedBytes, '\0') {}
  explicit Feed(std::unique_ptr<ByteStream> stream)
      : m_stream(std::move(stream)), m_bytes(kFeedBytes, '\0') {}

  bool isFile() const noexcept { return m_file != nullptr; }

  static la_ssize_t read(archive* opened, void* feed, const void** bytes) {
    return neverThrow<la_ssize_t>(ARCHIVE_FATAL,
                                  [&] { return static_cast<Feed*>(feed)->read(opened, bytes); });
  }
  static la_int64_t seek(archive* /*opened*/, void* feed, la_int64_t offset, int from) {
    return static_cast<Feed*>(feed)->seek(offset, from);
  }

 private:
  la_ssize_t read(archive* opened, const void** bytes) {
    const Result<std::size_t> got = next();
    *bytes = m_bytes.data();
    if (got) return static_cast<la_ssize_t>(*got);
    archive_set_error(opened, EIO, "%s", got.error().message.c_str());
    return ARCHIVE_FATAL;
  }
  Result<std::size_t> next() {
    if (m_stream) return m_stream->read(m_bytes.data(), m_bytes.size());
    const auto size =
        static_cast<std::size_t>(std::min<std::uint64_t>(m_file->size() - m_at, m_bytes.size()));
    if (Result<void> done = m_file->readAt(m_at, m_bytes.data(), size); !done) return std::move(done).error();
    m_at += size;
    return size;
  }
  la_int64_t seek(la_int64_t offset, int from) noexcept {
    const auto size = static_cast<la_int64_t>(m_file->size()), here = static_cast<la_int64_t>(m_at);
    const la_int64_t base = from == SEEK_SET ? 0 : from == SEEK_CUR ? here : size;
    if (offset < -base || offset > size - base) return ARCHIVE_FATAL;
    m_at = static_cast<std::uint64_t>(base + offset);
    return base + offset;
  }

  std::shared_ptr<FileReader> m_file;
  std::unique_ptr<ByteStream> m_stream;
  std::uint64_t m_at = 0;
  std::string m_bytes;
};

Error archiveError(archive* opened, const std::string& path) {
  const char* const reason = archive_error_string(opened);
  return {ErrorCode::unreadable,
          std::string("cannot be decompressed: ") + (reason ? reason : "unknown error"), path};
}

/// The bytes of the entry that is open.
class EntryStream final : public ByteStream {
 public:
  EntryStream(archive* opened, std::string path) : m_archive(opened), m_path(std::move(path)) {}
  Result<std::size_t> read(char* out, std::size_t size) override {
    for (;;) {
      const la_ssize_t got = archive_read_data(m_archive, out, size);
      if (got >= 0) return static_cast<std::size_t>(got);
      if (got != ARCHIVE_RETRY) return archiveError(m_archive, m_path);
    }
  }

 private:
  archive* m_archive;
  std::string m_path;
};

class ArchiveReader final : public SourceReader {
 public:
  ArchiveReader(Feed feed, std::string path, const SourceOptions& options)
      : m_feed(std::move(feed)), m_path(std::move(path)), m_options(options) {}

  Result<void> begin() {
    m_archive.reset(archive_read_new());
    archive* const opened = m_archive.get();
    if (!opened) return Error{ErrorCode::noMemory, "not enough memory", m_path};
    // Not all that libarchive knows: some of its filters start programs.
    archive_read_support_filter_gzip(opened);
    archive_read_support_filter_bzip2(opened);
    archive_read_support_filter_zstd(opened);
    archive_read_support_format_zip(opened);
    archive_read_support_format_tar(opened);
    archive_read_support_format_raw(opened);
    archive_read_support_format_empty(opened);
    archive_read_set_callback_data(opened, &m_feed);
    archive_read_set_read_callback(opened, Feed::read);
    if (m_feed.isFile()) archive_read_set_seek_callback(opened, Feed::seek);
    if (archive_read_open1(opened) != ARCHIVE_OK) return archiveError(opened, m_path);
    return {};
  }

  MailSource::Kind kind() const noexcept override { return m_kind; }
  Result<bool> next(SourceMessage& message) override {
    clearMessage(message);
    for (;;) {
      if (m_entry && giveFrom(*m_entry, message)) return true;
      m_entry.reset();
      Result<bool> hasEntry = openEntry(message);
      if (!hasEntry || !*hasEntry || message.error) return hasEntry;
    }
  }
  Result<bool> pass() override { return next(m_passed); }
  Result<void> seekOffset(std::uint64_t offset) override {
    if (!m_entry && m_number == 0)
      if (Result<bool> hasEntry = openEntry(m_passed); !hasEntry) return std::move(hasEntry).error();
    // In an archive each file has offsets of its own.
    return m_entry && isRaw() ? m_entry->seekOffset(offset) : SourceReader::seekOffset(offset);
  }

 private:
  bool isRaw() const noexcept { return archive_format(m_archive.get()) == ARCHIVE_FORMAT_RAW; }

  /// Gives a message of an entry; false after its last.
  bool giveFrom(MboxReader& entry, SourceMessage& message) {
    Result<bool> given = entry.next(message);
    if (given && !*given) return false;
    if (!given) {
      clearMessage(message);
      message.error = std::move(given).error();
      m_entry.reset();
    }
    describe(message);
    return true;
  }

  void describe(SourceMessage& message) {
    message.path = m_path;
    message.entry = m_name;
    message.sharesFile = message.sharesFile || !isRaw();
    ++m_number;
    if (!isRaw() || message.error) message.number = m_number;
    const std::string_view folder =
        std::string_view(m_name).substr(0, m_name.size() - baseName(m_name).size());
    if (folder.ends_with("cur/")) message.flags = maildirFlags(m_name);
    message.folder = folder.substr(0, folder.size() - (folder.empty() ? 0 : 1));
  }

  /// Opens the next entry that may be mail; false at the end.
  Result<bool> openEntry(SourceMessage& message) {
    archive_entry* header = nullptr;
    const int result = archive_read_next_header(m_archive.get(), &header);
    if (result == ARCHIVE_EOF) return false;
    if (result < ARCHIVE_WARN) return archiveError(m_archive.get(), m_path);
    m_name = isRaw() ? std::string() : nameOf(header);
    if (!isRaw() && archive_entry_filetype(header) != AE_IFREG) return true;
    if (isPartial(m_name)) return true;
    auto entry = std::make_unique<MboxReader>(std::make_unique<EntryStream>(m_archive.get(), m_path), m_path,
                                              m_options);
    const bool isMessage = !isRaw() && isMessageName(m_name);
    if (Result<void> begun = entry->begin(isMessage); !begun) {
      clearMessage(message);
      message.error = std::move(begun).error();
      describe(message);
      return true;
    }
    if (isRaw()) m_kind = entry->kind();
    if (isRaw() || isMessage || entry->kind() == MailSource::Kind::mbox) m_entry = std::move(entry);
    return true;
  }

  static std::string nameOf(archive_entry* header) {
    const char* name = archive_entry_pathname_utf8(header);
    if (!name) name = archive_entry_pathname(header);
    return name ? name : "?";
  }

  static bool isPartial(std::string_view name) { return contains(name, "/tmp/") || name.starts_with("tmp/"); }

  /// An .eml file, or one in a Maildir or an MH folder.
  static bool isMessageName(std::string_view name) {
    const std::string_view folder = name.substr(0, name.size() - baseName(name).size());
    const bool isInMaildir =
        folder == "cur/" || folder == "new/" || folder.ends_with("/cur/") || folder.ends_with("/new/");
    const std::string_view file = baseName(name);
    const bool isNumber = !file.empty() && std::ranges::all_of(file, isDigitAscii);
    return endsWithNoCase(name, ".eml") || isInMaildir || isNumber;
  }

  Feed m_feed;
  std::string m_path;
  SourceOptions m_options;
  ArchivePtr m_archive;
  MailSource::Kind m_kind = MailSource::Kind::archive;
  std::unique_ptr<MboxReader> m_entry;  ///< Reads the entry that is open.
  std::string m_name;                   ///< Of that entry.
  std::uint64_t m_number = 0;
  SourceMessage m_passed;
};

Result<std::unique_ptr<SourceReader>> opened(Feed feed, std::string path, const SourceOptions& options) {
  auto reader = std::make_unique<ArchiveReader>(std::move(feed), std::move(path), options);
  if (Result<void> begun = reader->begin(); !begun) return std::move(begun).error();
  return std::unique_ptr<SourceReader>(std::move(reader));
}

}  // namespace

Result<std::unique_ptr<SourceReader>> openArchive(std::shared_ptr<FileReader> file,
                                                  const SourceOptions& options) {
  std::string path = file->path();
  return opened(Feed(std::move(file)), std::move(path), options);
}

Result<std::unique_ptr<SourceReader>> openArchive(std::unique_ptr<ByteStream> stream, std::string path,
                                                  const SourceOptions& options) {
  return opened(Feed(std::move(stream)), std::move(path), options);
}

#endif

}  // namespace mailtree
