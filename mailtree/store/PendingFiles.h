// store/PendingFiles.h - files that get their names when their bytes are on disk. Private.
#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/store/FileReader.h"

namespace mailtree {

/// Writes files under temporary names, and renames them all when one call has brought them to disk. Those
/// that were not renamed are removed.
class PendingFiles {
 public:
  PendingFiles() = default;
  PendingFiles(const PendingFiles&) = delete;
  PendingFiles& operator=(const PendingFiles&) = delete;
  ~PendingFiles() { discard(); }

  /// Writes a file, whose temporary name must be new.
  /// @param name  the final one.
  Result<void> write(std::string temporary, std::string name, std::string_view bytes);
  std::size_t size() const noexcept { return m_files.size(); }

  /// Brings the files to disk and renames them in order.
  /// @param newName  gives another name when the first one is taken; an empty one gives up.
  template <class NewName>
  Result<void> commit(NewName newName) {
    if (Result<void> synced = sync(); !synced) return synced;
    for (; m_done < m_files.size(); ++m_done) {
      File& file = m_files[m_done];
      for (int error; (error = rename(file)) != 0;) {
        if (error != EEXIST) return failed(file, error);
        std::string name = newName();
        if (name.empty()) return failed(file, error);
        file.name = std::move(name);
      }
    }
    return finish();
  }

 private:
  struct File {
    std::string temporary, name;
  };

  Result<void> sync();
  Result<void> finish();
  static int rename(const File& file) noexcept;
  static Error failed(const File& file, int error);
  void discard() noexcept;

  std::vector<File> m_files;
  std::size_t m_done = 0;  ///< How many have their names.
};

}  // namespace mailtree
