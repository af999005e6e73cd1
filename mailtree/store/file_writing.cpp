// store/file_writing.cpp - messages as files: in a Maildir, or numbered in a folder.
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Platform.h"
#include "mailtree/store/MailWriter.h"
#include "mailtree/store/MailboxLock.h"
#include "mailtree/store/PendingFiles.h"
#include "mailtree/store/SourceReader.h"
#include "mailtree/store/folder_entries.h"
#include "mailtree/store/guard.h"

namespace mailtree {
namespace {

/// Messages that are kept back at most.
constexpr std::size_t kBatchFiles = 1000;
constexpr std::size_t kLeastDigits = 6;
constexpr std::string_view kExtension = ".eml";

Result<void> makeFolder(const std::string& path) {
  struct stat what {};
  if (::mkdir(path.c_str(), 0700) == 0) return {};
  const int error = errno;
  if (error != EEXIST || ::stat(path.c_str(), &what) != 0) return unwritable(path, error);
  return S_ISDIR(what.st_mode) ? Result<void>() : Result<void>(unwritable(path, ENOTDIR));
}

// Maildir

/// Letters only, each once, in the order of the alphabet, as the format wants them.
std::string checkedFlags(std::string_view flags) {
  std::string letters(flags);
  std::erase_if(letters, [](char c) { return !isAlphaAscii(c); });
  std::ranges::sort(letters);
  letters.erase(std::unique(letters.begin(), letters.end()), letters.end());
  return letters;
}

class MaildirWriter final : public MailWriter {
 public:
  explicit MaildirWriter(std::string path) : m_path(std::move(path)), m_host(hostWord()) {}

  Result<void> open() {
    const Result<FolderEntries> entries = listFolder(m_path);
    const auto isPart = [](const std::string& name) { return name == "cur" || name == "new"; };
    const bool isOther = entries && (entries->files.size() > 0 || !entries->folders.empty()) &&
                         std::ranges::none_of(entries->folders, isPart);
    if (isOther) return Error{ErrorCode::unwritable, "is a folder and not a Maildir", m_path};
    for (const char* const part : {"", "/tmp", "/new", "/cur"})
      if (Result<void> made = makeFolder(m_path + part); !made) return made;
    return {};
  }

  Result<void> add(std::string_view message, const Delivery& delivery) override {
    return guarded<void>([&]() -> Result<void> {
      const std::string key = newKey();
      const std::string name =
          delivery.flags ? "/cur/" + key + ":2," + checkedFlags(*delivery.flags) : "/new/" + key;
      if (Result<void> written = m_files.write(m_path + "/tmp/" + key, m_path + name, message); !written)
        return written;
      return m_files.size() < kBatchFiles ? Result<void>() : flush();
    });
  }

  Result<void> flush() override {
    return guarded<void>([&] { return m_files.commit([] { return std::string(); }); });
  }

 private:
  /// Time, process and a count in it: unique among all who deliver.
  std::string newKey() const {
    static std::atomic<std::uint64_t> count{0};
    struct timeval now {};
    ::gettimeofday(&now, nullptr);
    // The count has a fixed width, so that names sort in the order of delivery even within a microsecond.
    std::string number = std::to_string(++count), micros = std::to_string(now.tv_usec);
    number.insert(0, 8 - std::min<std::size_t>(8, number.size()), '0');
    micros.insert(0, 6 - std::min<std::size_t>(6, micros.size()), '0');
    return std::to_string(now.tv_sec) + ".M" + micros + "P" + std::to_string(::getpid()) + "Q" + number +
           "." + m_host;
  }

  std::string m_path, m_host;
  PendingFiles m_files;
};

// Folder

class FolderWriter final : public MailWriter {
 public:
  explicit FolderWriter(std::string path) : m_path(std::move(path)) {}

  Result<void> open() {
    if (Result<void> made = makeFolder(m_path); !made) return made;
    const Result<FolderEntries> entries = listFolder(m_path);
    if (!entries) return entries.error();
    for (std::size_t i = 0; i < entries->files.size(); ++i)
      m_number = std::max(m_number, numberOf(entries->files[i]));
    return {};
  }

  Result<void> add(std::string_view message, const Delivery&) override {
    return guarded<void>([&]() -> Result<void> {
      StringBuffer unique;
      if (!UniqueIdSource::genUniqueId(unique)) return unwritable(m_path, EIO);
      const std::string temporary = m_path + "/.mailtree-" + unique.getString() + ".tmp";
      if (Result<void> written = m_files.write(temporary, nextName(), message); !written) return written;
      return m_files.size() < kBatchFiles ? Result<void>() : flush();
    });
  }

  Result<void> flush() override {
    return guarded<void>([&] { return m_files.commit([this] { return nextName(); }); });
  }

 private:
  /// The number in "000001.eml"; 0 for other names.
  static std::uint64_t numberOf(std::string_view name) noexcept {
    if (!name.ends_with(kExtension)) return 0;
    name.remove_suffix(kExtension.size());
    if (name.size() < kLeastDigits || name.size() > 18 || !std::ranges::all_of(name, isDigitAscii)) return 0;
    std::uint64_t number = 0;
    for (const char c : name) number = 10 * number + static_cast<std::uint64_t>(c - '0');
    return number;
  }

  std::string nextName() {
    const std::string digits = std::to_string(++m_number);
    return m_path + "/" + std::string(kLeastDigits - std::min(kLeastDigits, digits.size()), '0') + digits +
           std::string(kExtension);
  }

  std::string m_path;
  std::uint64_t m_number = 0;
  PendingFiles m_files;
};

template <class Writer>
Result<MailWriterPtr> opened(const std::string& path) {
  return guarded<MailWriterPtr>([&]() -> Result<MailWriterPtr> {
    auto writer = std::make_unique<Writer>(path);
    if (Result<void> done = writer->open(); !done) return std::move(done).error();
    return MailWriterPtr(std::move(writer));
  });
}

}  // namespace

Result<MailWriterPtr> openMaildirWriter(const std::string& path) { return opened<MaildirWriter>(path); }
Result<MailWriterPtr> openFolderWriter(const std::string& path) { return opened<FolderWriter>(path); }

}  // namespace mailtree
