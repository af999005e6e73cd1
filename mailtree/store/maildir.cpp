#include "mailtree/store/maildir.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>

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

namespace {

/// Where the messages of a Maildir were a moment ago, by key. A program that moves all messages of a large
/// one makes every reader ask for each: one listing serves many of them.
class RecentNames {
 public:
  std::optional<std::string> find(const std::string& maildir, std::string_view key) {
    constexpr std::chrono::seconds kRecent{1};
    const std::lock_guard lock(m_mutex);
    const auto now = std::chrono::steady_clock::now();
    const bool isRecent = m_maildir == maildir && now - m_listed < kRecent;
    if (!isRecent) list(maildir);
    const auto found = m_paths.find(key);
    return found == m_paths.end() ? std::nullopt : std::optional(maildir + found->second);
  }

 private:
  void list(const std::string& maildir) {
    m_paths.clear();
    m_maildir = maildir;
    for (const std::string place : {"/new/", "/cur/"}) {
      const Result<FolderEntries> entries = listFolder(maildir + place);
      for (std::size_t i = 0; entries && i < entries->files.size(); ++i) {
        const std::string_view name = entries->files[i];
        m_paths.insert_or_assign(std::string(maildirKey(name)), place + std::string(name));
      }
    }
    m_listed = std::chrono::steady_clock::now();
  }

  std::mutex m_mutex;
  std::string m_maildir;
  std::map<std::string, std::string, std::less<>> m_paths;
  std::chrono::steady_clock::time_point m_listed;
};

}  // namespace

std::optional<std::string> findRenamed(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;
  const std::size_t folder = name < 2 ? std::string::npos : path.rfind('/', name - 2);
  if (name == 0 || folder == std::string::npos) return {};
  static RecentNames recent;
  return recent.find(path.substr(0, folder), maildirKey(std::string_view(path).substr(name)));
}

}  // namespace mailtree
