// cli/support/file_names.h - file names that are not in use.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "mailtree/base/FileNames.h"

namespace mailtree::cli {

/// Picks file names that are unique within one folder.
class UniqueFileNames {
 public:
  /// @param mayOverwrite  whether existing files may be overwritten.
  UniqueFileNames(std::filesystem::path folder, bool mayOverwrite);
  /// Returns the path of a file of that name, or of "name (2).ext" and so on when it is taken. Names picked
  /// before are compared without case, as some systems do.
  std::string pick(std::string_view name);

 private:
  bool isTaken(const std::string& name) const;

  std::filesystem::path m_folder;
  bool m_mayOverwrite;
  std::unordered_set<std::string> m_given;                 ///< Names picked so far, in lower case.
  std::unordered_map<std::string, unsigned> m_lastNumber;  ///< By name in lower case.
};

}  // namespace mailtree::cli
