#include "mailtree/store/maildir.h"

#include <algorithm>

#include "mailtree/store/folder_entries.h"

namespace mailtree {
namespace {

std::size_t infoOf(std::string_view name) noexcept {
  for (const std::string_view mark : {":2,", ";2,", "!2,"})
    if (const std::size_t at = name.rfind(mark); at != name.npos) return at;
  return name.npos;
}

}  // namespace

std::string_view maildirFlags(std::string_view name) noexcept {
  const std::size_t at = infoOf(name);
  return at == name.npos ? std::string_view() : name.substr(at + 3);
}

std::string_view maildirKey(std::string_view name) noexcept { return name.substr(0, infoOf(name)); }

std::string maildirFolderName(std::string_view folder) {
  std::string name(folder.substr(folder.starts_with('.') ? 1 : 0));
  if (folder.starts_with('.')) std::ranges::replace(name, '.', '/');
  return name;
}

std::optional<std::string> findRenamed(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;
  const std::size_t folder = name < 2 ? std::string::npos : path.rfind('/', name - 2);
  if (name == 0 || folder == std::string::npos) return {};
  const std::string_view key = maildirKey(std::string_view(path).substr(name));
  for (const char* const place : {"/cur", "/new"}) {
    const std::string where = path.substr(0, folder) + place;
    const Result<FolderEntries> entries = listFolder(where);
    for (std::size_t i = 0; entries && i < entries->files.size(); ++i)
      if (maildirKey(entries->files[i]) == key) return where + '/' + entries->files[i];
  }
  return {};
}

}  // namespace mailtree
