// cli/support/saving.h - saving message content to files.
#pragma once

#include <string>
#include <string_view>

#include "cli/support/exit_codes.h"
#include "cli/support/output_file.h"
#include "mailtree/base/Output.h"

namespace mailtree::cli {

/// Writes the whole file or none of it; false after reporting an error.
bool saveFile(const std::string& path, std::string_view bytes, Existing existing,
              Readers readers = Readers::usual);

/// Creates a folder and its missing parents; false after reporting an error.
bool makeFolder(const std::string& folder);

/// Prints the path of a file that was written.
void printPath(const std::string& path);

/// Writes to a file that the user named and prints its path, or to standard output (a terminal gets only
/// harmless characters). With `force`, an existing file is overwritten, through a symbolic link too.
Exit saveToOutput(std::string_view bytes, const Destination& to, Readers readers = Readers::usual);

/// Checks the file or folder name given for an option; returns the problem, or an empty string.
std::string checkNameGiven(const std::string& name);

}  // namespace mailtree::cli
