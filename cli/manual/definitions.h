// cli/manual/definitions.h - what a verb takes and does, read from the definitions that parse the command
// line.
//
// Help, man pages and completions are all made from this, so they cannot differ from what the command
// accepts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace mailtree::cli {

/// An option or a positional argument.
struct OptionFacts {
  std::vector<std::string> names;  ///< "-o", "--output", short ones first; the name of a positional argument.
  std::string value;               ///< Kind of value, such as TEXT, FILE or "gcm|cbc"; empty for flags.
  std::string description;
  std::vector<std::string> needs, excludes;  ///< Names of other options, sorted.
  bool isPositional = false, isRequired = false, isRepeatable = false;

  const std::string& name() const { return names.back(); }
  /// The values to choose from; empty when there is no such list.
  std::vector<std::string> choices() const;
  /// The description with what the option requires and excludes.
  std::string fullDescription() const;
};

struct OptionGroup {
  std::string title;
  std::vector<OptionFacts> options;
};

struct VerbFacts {
  std::vector<std::string> path;  ///< {"mailtree", "aes", "encrypt"}
  std::string summary;
  std::vector<OptionFacts> arguments;
  std::vector<OptionGroup> groups;
  std::vector<VerbFacts> verbs;
  std::vector<std::string> paragraphs;  ///< Each on one line.
  std::vector<std::string> examples;    ///< Shell lines; a line that continues another begins with blanks.

  std::string name(std::string_view separator = " ") const;
  /// "mailtree show [OPTIONS] FILE..."
  std::string usage() const;
};

/// Hidden verbs and options are left out.
VerbFacts factsOf(const CLI::App& verb);

}  // namespace mailtree::cli
