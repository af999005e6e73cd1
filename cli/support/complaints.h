// cli/support/complaints.h - what goes wrong, told on standard error.
#pragma once

#include <string>
#include <string_view>

#include "cli/support/exit_codes.h"
#include "mailtree/base/Log.h"

namespace mailtree::cli {

/// Why nothing is given that would not be whole.
inline constexpr std::string_view kNoMemory = "not enough memory";

/// Writes "mailtree: what is wrong" to standard error.
void complain(std::string_view problem);
/// Writes "mailtree: FILE: what is wrong"; an empty name shows as ''.
void complain(std::string_view file, std::string_view problem);

/// Complains about an option or argument of the command line; usage.
Exit refuse(std::string_view option, std::string_view problem);

/// The last error of a log; `otherwise` when it holds none.
std::string lastError(const LogMemory& log, std::string_view otherwise);

/// Flushes standard output; unreadable, after a complaint, when not all of it could be written.
Exit finishStandardOutput();

}  // namespace mailtree::cli
