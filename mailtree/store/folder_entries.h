// store/folder_entries.h - the names in a folder. Private.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Result.h"

namespace mailtree {

/// Names in blocks of memory that are never moved: folders of 100,000 messages are usual, and a name takes
/// little more than its bytes and a pointer, also while the list grows.
class NameList {
 public:
  void add(std::string_view name);
  void sort();
  /// By value, for names that are numbers.
  void sortNumbers();
  std::size_t size() const noexcept { return m_names.size(); }
  const char* operator[](std::size_t index) const noexcept { return m_names[index]; }
  template <class Predicate>
  void keepIf(Predicate keep) {
    std::erase_if(m_names, [&](const char* name) { return !keep(std::string_view(name)); });
  }

 private:
  std::vector<std::unique_ptr<char[]>> m_blocks;
  std::span<char> m_room;  ///< In the last block.
  std::vector<const char*> m_names;
};

struct FolderEntries {
  NameList files;                    ///< Regular files, and links to them; hidden ones too.
  std::vector<std::string> folders;  ///< Sorted. Links to folders are left out, so there are no circles.
};

/// Reads a folder once; no file is examined where the folder tells what it is.
Result<FolderEntries> listFolder(const std::string& path);

}  // namespace mailtree
