// cli/support/file_names.h - names for files, made of what a mail calls them.
//
// Whoever wrote a mail does not get to choose a folder, to hide a file, to disguise its type or to hit one that
// is there.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace mailtree::cli {

/// A name that is safe in any folder of any system, at most 200 bytes of utf-8: the base name only ("/" and
/// "\" both separate), without dots or blanks around it, never a device. Control and format characters,
/// malformed bytes, a leading "-" and what other systems forbid become "_". A long name loses its middle, not
/// its extension.
/// @param otherwise  the name when nothing is left.
std::string safeFileName(std::string_view fromMail, std::string_view otherwise);

/// Hands out names in one folder, each once.
class FreeNames {
 public:
  /// @param mayOverwrite  whether names of files that are there are free too.
  FreeNames(std::filesystem::path folder, bool mayOverwrite);
  /// The path of a file of that name, or of "name (2).ext" and so on when it is taken. Case is ignored for the
  /// names handed out: on some systems it makes no difference.
  std::string pick(std::string_view name);

 private:
  bool isTaken(const std::string& name) const;

  std::filesystem::path m_folder;
  bool m_mayOverwrite;
  std::unordered_set<std::string> m_given;                 ///< In lower case.
  std::unordered_map<std::string, unsigned> m_lastNumber;  ///< By name in lower case.
};

}  // namespace mailtree::cli
