// cli/message/folders.h - where files that are taken out of messages go.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>

#include "cli/message/input.h"
#include "cli/support/file_names.h"

namespace mailtree::cli {

/// Chooses folders and names. Of several messages in a mailbox or folder, each gets a folder of its own, such
/// as "DIR/box.mbox#12"; messages that were named one by one share the folder.
class MessageFolders {
 public:
  MessageFolders(const std::string& folder, bool mayOverwrite);

  /// Turns to the files of a message.
  void begin(const Input& input);
  /// Where its files go.
  const std::string& folder() const noexcept { return m_folder; }
  /// The path of a file in that folder whose name is not in use.
  std::string pick(std::string_view name) { return (m_own ? *m_own : m_shared).pick(name); }

 private:
  std::filesystem::path ownPath(const Input& input);

  std::filesystem::path m_root;
  std::string m_rootName, m_folder;
  bool m_mayOverwrite;
  UniqueFileNames m_shared, m_sources;
  std::optional<UniqueFileNames> m_own;
  std::unordered_map<std::string, std::string> m_begins;  ///< Of own folders, by mailbox.
};

}  // namespace mailtree::cli
