#include "mailtree/store/FolderReader.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "mailtree/base/Ascii.h"
#include "mailtree/store/maildir.h"

namespace mailtree {
namespace {

using Kind = MailSource::Kind;

bool isMessageNumber(std::string_view name) noexcept {
  return !name.empty() && std::ranges::all_of(name, isDigitAscii);
}

bool has(const std::vector<std::string>& sorted, std::string_view name) {
  return std::ranges::binary_search(sorted, name, std::less<>());
}

/// A copy may have lost an empty new/ or tmp/.
bool isMaildir(const FolderEntries& entries) {
  return has(entries.folders, "cur") || (has(entries.folders, "new") && has(entries.folders, "tmp"));
}

bool isMh(const NameList& files) {
  bool hasNumbers = false;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string_view name = files[i];
    if (name == ".mh_sequences") return true;
    if (isMessageFile(name)) return false;
    hasNumbers = hasNumbers || isMessageNumber(name);
  }
  return hasNumbers;
}

std::string joined(const std::string& folder, std::string_view name) {
  return folder.empty() ? std::string(name) : folder + (folder.ends_with('/') ? "" : "/") + std::string(name);
}

}  // namespace

bool isMessageFile(std::string_view name) noexcept {
  constexpr std::array<std::string_view, 4> kExtensions = {".eml", ".eml.gz", ".eml.zst", ".eml.bz2"};
  const auto isEnd = [name](std::string_view extension) { return endsWithNoCase(name, extension); };
  return !name.starts_with('.') && std::ranges::any_of(kExtensions, isEnd);
}

FolderReader::FolderReader(std::string root) { m_folder.path = std::move(root); }

Result<void> FolderReader::begin() {
  // A cur or new may be opened by itself.
  const std::filesystem::path path =
      std::filesystem::path(m_folder.path + "/.").lexically_normal().parent_path();
  const bool hasPartName = path.filename() == "cur" || path.filename() == "new";
  std::error_code ignored;
  m_folder.isMaildirPart = hasPartName && std::filesystem::is_directory(path.parent_path() / "tmp", ignored);
  if (m_folder.isMaildirPart) m_folder.path = path.string(), m_folder.kind = Kind::maildir;
  Result<void> listed = list(std::move(m_folder));
  m_kind = m_folder.kind;
  return listed;
}

/// Lists a folder, whose messages are given next, and adds those in it to the ones that wait.
Result<void> FolderReader::list(Folder folder) {
  m_folder = std::move(folder);
  m_next = 0;
  m_names = {};
  Result<FolderEntries> entries = listFolder(m_folder.path);
  if (!entries) return std::move(entries).error();
  m_names = std::move(entries->files);
  if (m_folder.isMaildirPart) {
    m_names.keepIf([](std::string_view name) { return !name.starts_with('.'); });
    m_names.sort();
    return {};
  }
  m_folder.kind = isMaildir(*entries) ? Kind::maildir : isMh(m_names) ? Kind::mh : Kind::folder;
  const bool isMhFolder = m_folder.kind == Kind::mh;
  m_names.keepIf(m_folder.kind == Kind::maildir ? [](std::string_view) { return false; }
                 : isMhFolder                   ? isMessageNumber
                                                : isMessageFile);
  isMhFolder ? m_names.sortNumbers() : m_names.sort();
  addFolders(entries->folders);
  return {};
}

void FolderReader::addFolders(const std::vector<std::string>& names) {
  const bool isInMaildir = m_folder.kind == Kind::maildir;
  for (std::size_t i = names.size(); i-- > 0;) {
    const std::string& name = names[i];
    const bool isPart = name == "cur" || name == "new" || name == "tmp";
    const bool isHidden = name.starts_with('.');
    if (isInMaildir ? isPart : isHidden) continue;
    m_waiting.push_back({.path = joined(m_folder.path, name),
                         .name = joined(m_folder.name, isInMaildir ? maildirFolderName(name) : name)});
  }
  for (const char* const part : {"new", "cur"})  // cur, the older ones, is next
    if (isInMaildir && has(names, part))
      m_waiting.push_back({.path = joined(m_folder.path, part),
                           .name = m_folder.name,
                           .kind = Kind::maildir,
                           .isMaildirPart = true});
}

/// Moves to the next name; false at the end, or at a folder that cannot be listed.
bool FolderReader::advance() {
  while (m_next == m_names.size()) {
    if (m_waiting.empty()) return false;
    Folder folder = std::move(m_waiting.back());
    m_waiting.pop_back();
    if (Result<void> listed = list(std::move(folder)); !listed) {
      m_problem = std::move(listed).error();
      return false;
    }
  }
  ++m_next;
  ++m_number;
  return true;
}

Result<bool> FolderReader::next(SourceMessage& message) {
  clearMessage(message);
  if (!advance()) {
    if (!m_problem) return false;
    message.path = m_folder.path;
    message.folder = m_folder.name;
    message.error = std::exchange(m_problem, {});
    return true;
  }
  const std::string_view name = m_names[m_next - 1];
  message.path.assign(m_folder.path).append(m_folder.path.ends_with('/') ? "" : "/").append(name);
  message.folder = m_folder.name;
  message.number = m_number;
  message.isInMaildir = m_folder.isMaildirPart;
  if (m_folder.isMaildirPart && m_folder.path.ends_with("cur")) message.flags = maildirFlags(name);
  return true;
}

Result<bool> FolderReader::pass() {
  while (!advance())
    if (!std::exchange(m_problem, {})) return false;
  return true;
}

}  // namespace mailtree
