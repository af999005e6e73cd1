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
  constexpr std::size_t kBlock = std::size_t{1} << 16;
  if (m_room.size() <= name.size()) {
    const std::size_t size = std::max(kBlock, name.size() + 1);
    m_blocks.emplace_back(new char[size]);  // make_unique would fill it with zeros
    m_room = {m_blocks.back().get(), size};
  }
  m_names.push_back(m_room.data());
  m_room[name.copy(m_room.data(), name.size())] = '\0';
  m_room = m_room.subspan(name.size() + 1);
}

void NameList::sort() {
  std::ranges::sort(m_names, [](const char* a, const char* b) { return std::strcmp(a, b) < 0; });
}

void NameList::sortNumbers() {
  const auto valueOf = [](const char* name) {
    std::string_view digits(name);
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return std::pair(digits.size(), digits);
  };
  std::ranges::sort(m_names, {}, valueOf);
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
