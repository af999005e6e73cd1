#include "cli/message/folders.h"

#include "mailtree/base/FileNames.h"

namespace mailtree::cli {

namespace fs = std::filesystem;

MessageFolders::MessageFolders(const std::string& folder, bool mayOverwrite)
    : m_root(folder == "." ? fs::path() : fs::path(folder)),
      m_rootName(folder),
      m_folder(folder),
      m_mayOverwrite(mayOverwrite),
      m_shared(m_root, mayOverwrite),
      m_sources(fs::path(), /*mayOverwrite=*/true) {}

void MessageFolders::begin(const Input& input) {
  m_own.reset();
  m_folder = m_rootName;
  if (!input.isOneOfSeveral || input.name == input.found) return;
  const fs::path folder = m_root / ownPath(input);
  m_folder = folder.string();
  m_own.emplace(folder, m_mayOverwrite);
}

/// "box.mbox#12", or "Maildir/cur/1" for a message in a folder. No name in it leads elsewhere.
fs::path MessageFolders::ownPath(const Input& input) {
  const fs::path found = fs::path(input.found).lexically_normal();
  std::string& begin = m_begins[input.found];
  if (begin.empty())
    begin = m_sources.pick(
        safeFileName((found.has_filename() ? found : found.parent_path()).filename().string(), "mail"));
  if (input.source.sharesFile) return begin + input.name.substr(input.source.path.size());
  fs::path path = begin;
  for (const fs::path& part : fs::path(input.name).lexically_relative(found))
    path /= safeFileName(part.string(), "_");
  return path;
}

}  // namespace mailtree::cli
