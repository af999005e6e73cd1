#include "mailtree/store/folder_entries.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "mailtree/store/SourceReader.h"

namespace mailtree {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

enum class EntryType { file, folder, other };

EntryType typeOfMode(mode_t mode) noexcept {
  return S_ISREG(mode) ? EntryType::file : S_ISDIR(mode) ? EntryType::folder : EntryType::other;
}

EntryType typeOf(DIR* folder, const dirent& entry) noexcept {
  if (entry.d_type == DT_REG) return EntryType::file;
  if (entry.d_type == DT_DIR) return EntryType::folder;
  if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return EntryType::other;
  struct stat what {};
  if (::fstatat(::dirfd(folder), entry.d_name, &what, AT_SYMLINK_NOFOLLOW) != 0) return EntryType::other;
  if (!S_ISLNK(what.st_mode)) return typeOfMode(what.st_mode);
  // One that leads nowhere is an error when it is read.
  const bool leads = ::fstatat(::dirfd(folder), entry.d_name, &what, 0) == 0;
  return !leads || S_ISREG(what.st_mode) ? EntryType::file : EntryType::other;
}

}  // namespace

void NameList::add(std::string_view name) {
  m_begins.push_back(m_text.size());
  m_text.append(name).push_back('\0');
}

void NameList::sort() {
  const char* const text = m_text.c_str();
  std::ranges::sort(m_begins,
                    [text](std::size_t a, std::size_t b) { return std::strcmp(text + a, text + b) < 0; });
}

void NameList::sortNumbers() {
  const auto valueOf = [this](std::size_t begin) {
    std::string_view digits(m_text.c_str() + begin);
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return std::pair(digits.size(), digits);
  };
  std::ranges::sort(m_begins, {}, valueOf);
}

Result<FolderEntries> listFolder(const std::string& path) {
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
  if (!folder) return unreadable(path, errno);
  FolderEntries entries;
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(folder.get());
    if (!entry && errno != 0) return unreadable(path, errno);
    if (!entry) break;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    const EntryType type = typeOf(folder.get(), *entry);
    if (type == EntryType::file) entries.files.add(name);
    if (type == EntryType::folder) entries.folders.emplace_back(name);
  }
  std::ranges::sort(entries.folders);
  return entries;
}

}  // namespace mailtree
