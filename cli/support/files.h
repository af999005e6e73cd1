// cli/support/files.h - reading files and standard input.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/base/DataBuffer.h"

namespace mailtree::cli {

/// Appends the file that an argument names or, for a folder, its files sorted by name, without hidden files
/// and subfolders. unreadable after reporting an error.
Exit appendFiles(const std::string& path, std::vector<std::string>& files);

/// Reads a whole file, or standard input for "-". False after reporting an error.
bool readFile(const std::string& path, DataBuffer& bytes);

}  // namespace mailtree::cli
