// cli/support/file_names.h - safe file names, derived from those in a message.
//
// The author of a message cannot choose a folder, hide a file, disguise its type or overwrite
// an existing one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace mailtree::cli {

/// Returns a name that is safe on any system, at most 200 bytes of utf-8: the base name only ("/" and "\"
/// both separate), without leading or trailing dots and blanks, never a device name. Control and format
/// characters, malformed bytes, a leading "-" and characters forbidden on other systems become "_". A long
/// name is cut before its extension.
/// @param otherwise  the name used when nothing is left.
std::string safeFileName(std::string_view fromMail, std::string_view otherwise);

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
