// store/folder_entries.h - the names in a folder. Private.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Result.h"

namespace mailtree {

/// Names in one block of memory: folders of 100,000 messages are usual.
class NameList {
 public:
  void add(std::string_view name);
  void sort();
  /// By value, for names that are numbers.
  void sortNumbers();
  std::size_t size() const noexcept { return m_begins.size(); }
  const char* operator[](std::size_t index) const noexcept { return m_text.c_str() + m_begins[index]; }
  template <class Predicate>
  void keepIf(Predicate keep) {
    std::erase_if(m_begins,
                  [&](std::size_t begin) { return !keep(std::string_view(m_text.c_str() + begin)); });
  }

 private:
  std::string m_text;  ///< Each with a NUL after it.
  std::vector<std::size_t> m_begins;
};

struct FolderEntries {
  NameList files;                    ///< Regular files, and links to them; hidden ones too.
  std::vector<std::string> folders;  ///< Sorted. Links to folders are left out, so there are no circles.
};

/// Reads a folder once; no file is examined where the folder tells what it is.
Result<FolderEntries> listFolder(const std::string& path);

}  // namespace mailtree
