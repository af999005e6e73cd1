// cli/support/saving.h - contents of messages to files.
#pragma once

#include <string>
#include <string_view>

#include "cli/support/exit_codes.h"
#include "mailtree/base/Output.h"

namespace mailtree::cli {

/// False after a complaint; the file is there whole or not at all.
bool saveFile(const std::string& path, std::string_view bytes, Existing existing,
              Readers readers = Readers::usual);

/// Makes a folder and those above it where they are missing; false after a complaint.
bool makeFolder(const std::string& folder);

/// Prints the path of a file that was written.
void tellPath(const std::string& path);

/// Writes to a file the user named, telling its path, or to standard output for "-", where a terminal gets only
/// the harmless part. The name is the user's own: with `force` it is written to as any program would, through a
/// symbolic link too.
Exit saveToOutput(std::string_view bytes, const std::string& path, bool force,
                  Readers readers = Readers::usual);

/// Check of an option that takes a file or folder: what is wrong with the name; nothing when it is usable.
std::string checkNameGiven(const std::string& name);

}  // namespace mailtree::cli
