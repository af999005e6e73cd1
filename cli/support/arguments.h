// cli/support/arguments.h - command-line arguments taken literally.
//
// The command-line parser reads "[a,b]" as a list and "{}" as an empty one; here they are names of files and
// header fields like any other.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace mailtree::cli {

/// The arguments in the parser's order, last one first, protected from being split as lists.
std::vector<std::string> protectedArguments(int argc, const char* const* argv);

/// Add options and positional arguments that receive text literally. The targets must outlive the parsing.
CLI::Option* addText(CLI::App& verb, const std::string& name, std::string& target,
                     const std::string& description);
CLI::Option* addText(CLI::App& verb, const std::string& name, std::optional<std::string>& target,
                     const std::string& description);
CLI::Option* addTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& target,
                      const std::string& description);
/// Adds a repeatable option that takes one string each time.
CLI::Option* addRepeated(CLI::App& verb, const std::string& name, std::vector<std::string>& target,
                         const std::string& description);

}  // namespace mailtree::cli
