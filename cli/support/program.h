// cli/support/program.h - runs another program.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/support/exit_codes.h"

namespace mailtree::cli {

/// Runs a program, never through a shell, with a text as its standard input. A name without a slash is looked
/// up in PATH. What it writes is reported, and on failure its exit status too.
/// @return negative when the program failed or did not take the whole text, unreadable when it could not be
///         run.
Exit runProgram(const std::string& program, const std::vector<std::string>& arguments,
                std::string_view input);

}  // namespace mailtree::cli
