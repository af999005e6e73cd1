// cli/manual/help.h - the text of --help.
#pragma once

#include <string>

#include "cli/manual/definitions.h"
#include "cli/support/exit_codes.h"

namespace mailtree::cli {

/// Lines of at most this many columns, broken between words.
std::string helpText(const VerbFacts& verb, std::size_t columns);

/// Prints the help of a verb on standard output, as wide as its terminal.
Exit printHelp(const CLI::App& verb);

}  // namespace mailtree::cli
