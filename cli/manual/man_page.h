// cli/manual/man_page.h - the manual page of a verb, in the macros of mdoc(7).
#pragma once

#include <string>

#include "cli/manual/definitions.h"

namespace mailtree::cli {

/// @param command  the whole command, to which the page refers.
/// @param date     such as "November 22, 2026".
std::string manPage(const VerbFacts& verb, const VerbFacts& command, const std::string& date);

}  // namespace mailtree::cli
