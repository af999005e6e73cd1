// base/internal.h - shared by the files of this folder only.
#pragma once

#include <string_view>

namespace mailtree {

class LogBase;

/// Logs a file error of the host: the path as data, the reason (of an errno) as an error line.
void logHostError(LogBase& log, const char* path, int error);

/// isValidUtf8 without vector instructions: for every host, and to test the others.
bool isValidUtf8Portable(std::string_view bytes) noexcept;

}  // namespace mailtree
