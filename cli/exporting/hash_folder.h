// cli/exporting/hash_folder.h - files named by the SHA-256 of their content, each content once.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "mailtree/base/Result.h"

namespace mailtree::cli {

/// "FOLDER/ab/abcdef..." for a content with that hash. Any thread, and any number of processes, may add
/// files.
class HashFolder {
 public:
  explicit HashFolder(std::string folder) : m_folder(std::move(folder)) {}

  /// Creates the folder.
  Result<void> open();
  /// Stores a content unless it is there, and returns its hash; empty after reporting an error.
  std::string add(std::string_view bytes);
  /// Waits until everything is on disk.
  Result<void> flush();
  bool hasFailed() const noexcept { return m_hasFailed; }

 private:
  std::string m_folder;
  std::atomic<bool> m_hasFailed = false;
};

}  // namespace mailtree::cli
