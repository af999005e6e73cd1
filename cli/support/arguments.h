// cli/support/arguments.h - command-line arguments taken literally.
//
// The command-line parser reads "[a,b]" as a list and "{}" as an empty one; here they are names of files and
// header fields like any other.
#pragma once

#include <cstdint>
#include <limits>
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

/// Kinds of values, as shown in help; completions offer files or folders for them.
inline constexpr const char *kFile = "FILE", *kFolder = "FOLDER";

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

/// The option takes a decimal number in this range; other values are refused in words.
CLI::Option* wholeNumber(CLI::Option* option, std::uint64_t least = 0,
                         std::uint64_t most = std::numeric_limits<int>::max());

/// The option takes one of these words, in any case. Help and completions show the list.
CLI::Option* oneOf(CLI::Option* option, std::vector<std::string> words);

}  // namespace mailtree::cli
