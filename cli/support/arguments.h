// cli/support/arguments.h - the verbs of the command line, their options and arguments.
//
//   Parser     Only arguments.cpp, main.cpp and cli/manual/ know it: its header takes longer to compile
//              than all of a verb.
//   Literal    The parser reads "[a,b]" as a list and "{}" as an empty one; here they are names of files and
//              header fields like any other.
//   Targets    What receives the values must outlive the parsing.
#pragma once

#include <cstdint>
#include <functional>
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

/// An option, a flag or a positional argument.
class Option {
 public:
  explicit Option(CLI::Option* option) : m_option(option) {}

  Option required(bool isRequired = true) const;
  /// What help shows for the value.
  Option kind(const std::string& name) const;
  /// The title that it has in help.
  Option group(const std::string& title) const;
  Option excludes(Option other) const;
  Option excludes(const std::string& name) const;
  Option needs(Option other) const;
  /// Takes one value each time it is given.
  Option repeatable() const;
  /// Takes the first of several positional arguments only.
  Option single() const;
  /// Refuses a value for what the function says of it; empty is fine.
  Option check(const std::function<std::string(const std::string& value)>& problemOf) const;
  /// Takes one of these words, in any case. Help and completions show the list.
  Option oneOf(std::vector<std::string> words) const;
  Option whenGiven(const std::function<void()>& act) const;

 private:
  CLI::Option* m_option;
};

/// A verb, or the command itself.
class Verb {
 public:
  explicit Verb(CLI::App* app) : m_app(app) {}

  const CLI::App& parser() const { return *m_app; }

  Verb addVerb(const std::string& name, const std::string& description) const;
  /// A verb that help does not list.
  Verb addHiddenVerb(const std::string& name, const std::string& description) const;
  /// One of its verbs must be given.
  void requireVerb() const;
  void setFooter(const std::string& text) const;
  /// Is called when the verb was given and everything parsed.
  void whenChosen(std::function<void()> act) const;

  Option addFlag(const std::string& name, bool& target, const std::string& description) const;
  Option addText(const std::string& name, std::string& target, const std::string& description) const;
  Option addText(const std::string& name, std::optional<std::string>& target,
                 const std::string& description) const;
  Option addTexts(const std::string& name, std::vector<std::string>& target,
                  const std::string& description) const;
  /// An option that takes one text each time.
  Option addRepeated(const std::string& name, std::vector<std::string>& target,
                     const std::string& description) const;
  /// A decimal number in a range; other values are refused in words.
  /// @tparam Number  int, std::uint32_t, std::uint64_t, or an optional or a vector of numbers.
  template <class Number>
  Option addNumber(const std::string& name, Number& target, const std::string& description,
                   std::uint64_t least = 0, std::uint64_t most = std::numeric_limits<int>::max()) const;
  /// One that was added before.
  Option option(const std::string& name) const;

 private:
  CLI::App* m_app;
};

/// Ends the parsing with an error about an option; only for whenChosen().
[[noreturn]] void refuseUsage(const std::string& option, const std::string& problem);

}  // namespace mailtree::cli
