// cli/exporting/whole_file.h - small files in large numbers: whole or not there, and synchronized together.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/base/Result.h"

namespace mailtree::cli {

/// Writes a file under a temporary name beside it, and renames it. Any thread may do so. False after
/// reporting an error.
bool writeWhole(const std::string& path, std::string_view bytes);

/// Waits until everything written to the file system of a folder is on disk: one call for many files.
Result<void> synchronize(const std::string& folder);

}  // namespace mailtree::cli
