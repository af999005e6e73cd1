// cli/support/files.h - files and standard input, read.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/base/DataBuffer.h"

namespace mailtree::cli {

/// Appends the files that an argument names: itself, or when it is a folder the files in it, sorted by name, without
/// hidden ones and without those of its subfolders. unreadable after a complaint.
Exit appendFiles(const std::string& path, std::vector<std::string>& files);

/// Reads a whole file, or standard input for "-". False after a complaint.
bool readFile(const std::string& path, DataBuffer& bytes);

}  // namespace mailtree::cli
