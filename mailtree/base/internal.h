// base/internal.h - what the files of this folder share and nobody else needs.
#pragma once

namespace mailtree {

class LogBase;

/// Logs why the host refused something about a file: the path as data, the reason (of an errno) as an error line.
void logHostError(LogBase& log, const char* path, int error);

}  // namespace mailtree
