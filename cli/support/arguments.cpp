#include "cli/support/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>

#include "mailtree/base/Ascii.h"

namespace mailtree::cli {
namespace {

/// Put at one end of an argument to hide a bracket or a leading "-" from the parser. No argument of a process
/// contains it.
constexpr char kGuard = '\0';

bool looksLikeList(std::string_view argument) {
  return (argument.starts_with('[') && argument.ends_with(']')) || argument == "{}";
}

/// "-#12", message 12 of standard input.
bool namesMessageOfInput(std::string_view argument) {
  return argument.starts_with("-#") || argument.starts_with("-@");
}

std::string literal(std::string argument) {
  if (!argument.empty() && argument.front() == kGuard) argument.erase(0, 1);
  if (!argument.empty() && argument.back() == kGuard) argument.pop_back();
  return argument;
}

/// What is wrong with a number; empty when it is one in the range.
std::string problemOfNumber(std::string_view text, std::uint64_t least, std::uint64_t most) {
  const bool isNegative = text.starts_with('-');
  const std::string_view digits = text.substr(isNegative ? 1 : 0);
  if (digits.empty() || !std::ranges::all_of(digits, isDigitAscii))
    return "'" + std::string(text) + "' is not a whole number";
  std::uint64_t value = 0;
  const bool fits = std::from_chars(digits.data(), digits.data() + digits.size(), value).ec == std::errc();
  if (isNegative || (fits && value < least))
    return std::string(text) + " is too small: at least " + std::to_string(least);
  if (fits && value <= most) return {};
  return std::string(text) + " is too large: at most " + std::to_string(most);
}

/// "a, b or c"
std::string listOf(const std::vector<std::string>& words) {
  std::string list;
  for (std::size_t i = 0; i < words.size(); ++i)
    list += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
  return list;
}

template <class Target>
Option addLiteral(CLI::App& verb, const std::string& name, Target& target, const std::string& description) {
  const auto take = [&target](const CLI::results_t& values) {
    target = literal(values.front());
    return true;
  };
  return Option(verb.add_option(name, take, description)->type_name("TEXT"));
}

}  // namespace

std::vector<std::string> protectedArguments(int argc, const char* const* argv) {
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {
    std::string& argument = arguments.emplace_back(argv[i]);
    if (looksLikeList(argument)) argument += kGuard;
    if (namesMessageOfInput(argument)) argument.insert(0, 1, kGuard);
  }
  return arguments;
}

Option Option::required(bool isRequired) const { return Option(m_option->required(isRequired)); }
Option Option::kind(const std::string& name) const { return Option(m_option->type_name(name)); }
Option Option::group(const std::string& title) const { return Option(m_option->group(title)); }
Option Option::excludes(Option other) const { return Option(m_option->excludes(other.m_option)); }
Option Option::excludes(const std::string& name) const { return Option(m_option->excludes(name)); }
Option Option::needs(Option other) const { return Option(m_option->needs(other.m_option)); }
Option Option::repeatable() const { return Option(m_option->allow_extra_args(false)); }
Option Option::single() const { return Option(m_option->expected(1)->allow_extra_args(false)); }

Option Option::check(const std::function<std::string(const std::string& value)>& problemOf) const {
  return Option(m_option->check(problemOf));
}

Option Option::oneOf(std::vector<std::string> words) const {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : "|") + word;
  return kind(list).check([words = std::move(words)](const std::string& given) {
    const bool isKnown =
        std::ranges::any_of(words, [&given](const std::string& word) { return equalsNoCase(word, given); });
    return isKnown ? std::string() : "'" + given + "': must be " + listOf(words);
  });
}

Option Option::whenGiven(const std::function<void()>& act) const {
  return Option(m_option->each([act](const std::string&) { act(); }));
}

Verb Verb::addVerb(const std::string& name, const std::string& description) const {
  return Verb(m_app->add_subcommand(name, description));
}

Verb Verb::addHiddenVerb(const std::string& name, const std::string& description) const {
  return Verb(m_app->add_subcommand(name, description)->group(""));
}

void Verb::requireVerb() const { m_app->require_subcommand(1); }
void Verb::setFooter(const std::string& text) const { m_app->footer(text); }
void Verb::whenChosen(std::function<void()> act) const { m_app->callback(std::move(act)); }
Option Verb::option(const std::string& name) const { return Option(m_app->get_option(name)); }

Option Verb::addFlag(const std::string& name, bool& target, const std::string& description) const {
  return Option(m_app->add_flag(name, target, description));
}

Option Verb::addText(const std::string& name, std::string& target, const std::string& description) const {
  return addLiteral(*m_app, name, target, description);
}

Option Verb::addText(const std::string& name, std::optional<std::string>& target,
                     const std::string& description) const {
  return addLiteral(*m_app, name, target, description);
}

Option Verb::addTexts(const std::string& name, std::vector<std::string>& target,
                      const std::string& description) const {
  const auto take = [&target](const CLI::results_t& values) {
    target.clear();
    for (const std::string& value : values) target.push_back(literal(value));
    return true;
  };
  return Option(m_app->add_option(name, take, description)
                    ->type_name("TEXT")
                    ->expected(1, CLI::detail::expected_max_vector_size)
                    ->allow_extra_args());
}

Option Verb::addRepeated(const std::string& name, std::vector<std::string>& target,
                         const std::string& description) const {
  return addTexts(name, target, description).repeatable();
}

template <class Number>
Option Verb::addNumber(const std::string& name, Number& target, const std::string& description,
                       std::uint64_t least, std::uint64_t most) const {
  return Option(m_app->add_option(name, target, description))
      .kind("N")
      .check([least, most](const auto& text) { return problemOfNumber(text, least, most); });
}

template Option Verb::addNumber(const std::string&, int&, const std::string&, std::uint64_t,
                                std::uint64_t) const;
template Option Verb::addNumber(const std::string&, std::uint32_t&, const std::string&, std::uint64_t,
                                std::uint64_t) const;
template Option Verb::addNumber(const std::string&, std::uint64_t&, const std::string&, std::uint64_t,
                                std::uint64_t) const;
template Option Verb::addNumber(const std::string&, std::optional<int>&, const std::string&, std::uint64_t,
                                std::uint64_t) const;
template Option Verb::addNumber(const std::string&, std::optional<std::size_t>&, const std::string&,
                                std::uint64_t, std::uint64_t) const;
template Option Verb::addNumber(const std::string&, std::vector<int>&, const std::string&, std::uint64_t,
                                std::uint64_t) const;

void refuseUsage(const std::string& option, const std::string& problem) {
  throw CLI::ValidationError(option, problem);
}

}  // namespace mailtree::cli
