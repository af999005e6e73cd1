// store/FolderReader.h - messages that are files: Maildir, MH, trees of .eml files. Private.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/store/SourceReader.h"
#include "mailtree/store/folder_entries.h"

namespace mailtree {

/// Whether a file in a folder that is no mailbox is a message by its name.
bool isMessageFile(std::string_view name) noexcept;

/// Gives names in a fixed order: folder by folder, each sorted. A folder is listed when its turn comes.
class FolderReader final : public SourceReader {
 public:
  explicit FolderReader(std::string root);
  /// Lists the topmost folder. Must be called once, before anything else.
  Result<void> begin();

  MailSource::Kind kind() const noexcept override { return m_kind; }
  Result<bool> next(SourceMessage& message) override;
  Result<bool> pass() override;

 private:
  struct Folder {
    std::string path{};
    std::string name{};  ///< As SourceMessage::folder.
    MailSource::Kind kind = MailSource::Kind::folder;
    bool isMaildirPart = false;  ///< It is a cur or new, and there is nothing else to look for.
  };

  Result<void> list(Folder folder);
  void addFolders(const std::vector<std::string>& names);
  bool advance();

  MailSource::Kind m_kind = MailSource::Kind::folder;
  std::vector<Folder> m_waiting;  ///< Folders to list, the next one last.
  Folder m_folder;                ///< The one that is listed.
  NameList m_names;
  std::size_t m_next = 0;
  std::uint64_t m_number = 0;
  std::optional<Error> m_problem;  ///< Of a folder that could not be listed.
};

}  // namespace mailtree
