// cli/manual/usage.h - what is wrong with a command line, in words.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace mailtree::cli {

/// The verb named by the words up to the first option, such as {"aes", "encrypt"}. Null after reporting a
/// word that is no verb, with the one that was probably meant.
const CLI::App* verbNamed(const CLI::App& app, const std::vector<std::string>& words);

/// The verb that was parsed, the innermost one.
const CLI::App& parsedVerb(const CLI::App& app);

/// Reports why the command line could not be parsed; returns usage.
Exit reportUsage(const CLI::App& app, const CLI::ParseError& error);

}  // namespace mailtree::cli
