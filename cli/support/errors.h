// cli/support/errors.h - error messages on standard error.
#pragma once

#include <string>
#include <string_view>

#include "cli/support/exit_codes.h"
#include "mailtree/base/Log.h"  // reports come from logs

namespace mailtree::cli {

/// Writes "mailtree: PROBLEM" to standard error.
void reportError(std::string_view problem);
/// Writes "mailtree: FILE: PROBLEM"; an empty name shows as ''.
void reportError(std::string_view file, std::string_view problem);

/// Reports a wrong option or argument; returns Exit::usage.
Exit usageError(std::string_view option, std::string_view problem);

/// Flushes standard output. When not all of it could be written, reports an error and returns
/// Exit::unreadable.
Exit finishStandardOutput();

}  // namespace mailtree::cli
