// cli/support/arguments.h - arguments that mean what they say.
//
// The parser of the command line takes "[a,b]" for a list and "{}" for an empty one; to this command they are
// names of files and of fields like any other.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace mailtree::cli {

/// The arguments as the parser wants them, the last one first, with what it would take apart protected.
std::vector<std::string> protectedArguments(int argc, const char* const* argv);

/// Options and positional arguments that receive text literally. The targets outlive the parsing.
CLI::Option* addText(CLI::App& verb, const std::string& name, std::string& target,
                     const std::string& description);
CLI::Option* addText(CLI::App& verb, const std::string& name, std::optional<std::string>& target,
                     const std::string& description);
CLI::Option* addTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& target,
                      const std::string& description);
/// An option that takes one text each time it is given.
CLI::Option* addRepeated(CLI::App& verb, const std::string& name, std::vector<std::string>& target,
                         const std::string& description);

}  // namespace mailtree::cli
