// base/FileNames.h - safe file names, derived from those in a message.
//
// The author of a message cannot choose a folder, hide a file, or disguise its type.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Returns a name that is safe on any system, at most 200 bytes of utf-8: the base name only ("/" and "\"
/// both separate), without leading or trailing dots and blanks, never a device name. Control and format
/// characters, malformed bytes, a leading "-" and characters forbidden on other systems become "_". A long
/// name is cut before its extension.
/// @param otherwise  the name used when nothing is left.
std::string safeFileName(std::string_view fromMail, std::string_view otherwise);

struct FileNameParts {
  std::string_view stem, extension;  ///< The extension with its dot; may be empty.
};

FileNameParts splitFileName(std::string_view name);

/// "name (2).ext" for 2, and so on; the name itself for 1.
std::string numberedFileName(std::string_view name, unsigned number);

}  // namespace mailtree
