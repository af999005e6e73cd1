// cli/manual/completions.h - scripts that complete a command line in a shell.
#pragma once

#include <string>

#include "cli/manual/definitions.h"

namespace mailtree::cli {

std::string bashCompletion(const VerbFacts& command);
std::string zshCompletion(const VerbFacts& command);
std::string fishCompletion(const VerbFacts& command);

}  // namespace mailtree::cli
