// cli/support/files.h - reading files and standard input.
#pragma once

#include <string>

#include "mailtree/base/DataBuffer.h"

namespace mailtree::cli {

/// Reads a whole file, or standard input for "-". False after reporting an error.
bool readFile(const std::string& path, DataBuffer& bytes);

}  // namespace mailtree::cli
