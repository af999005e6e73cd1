// base/internal.h - what the files of this folder share and nobody else needs.
#pragma once

#include <string_view>

namespace mailtree {

class LogBase;

/// Logs why the host refused something about a file: the path as data, the reason (of an errno) as an error
/// line.
void logHostError(LogBase& log, const char* path, int error);

/// isValidUtf8 without vector instructions; what every host has and the others are tested against.
bool isValidUtf8Portable(std::string_view bytes) noexcept;

}  // namespace mailtree
