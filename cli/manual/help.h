// cli/manual/help.h - the text of --help.
#pragma once

#include <string>

#include "cli/manual/definitions.h"
#include "cli/support/exit_codes.h"

namespace mailtree::cli {

/// The help text, broken between words into lines of at most so many columns.
std::string helpText(const VerbFacts& verb, std::size_t columns);

/// Prints the help of a verb to standard output, as wide as the terminal.
Exit printHelp(const CLI::App& verb);

}  // namespace mailtree::cli
