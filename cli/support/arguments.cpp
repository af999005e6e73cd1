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
CLI::Option* addLiteral(CLI::App& verb, const std::string& name, Target& target,
                        const std::string& description) {
  const auto take = [&target](const CLI::results_t& values) {
    target = literal(values.front());
    return true;
  };
  return verb.add_option(name, take, description)->type_name("TEXT");
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

CLI::Option* addText(CLI::App& verb, const std::string& name, std::string& target,
                     const std::string& description) {
  return addLiteral(verb, name, target, description);
}

CLI::Option* addText(CLI::App& verb, const std::string& name, std::optional<std::string>& target,
                     const std::string& description) {
  return addLiteral(verb, name, target, description);
}

CLI::Option* addTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& target,
                      const std::string& description) {
  const auto take = [&target](const CLI::results_t& values) {
    target.clear();
    for (const std::string& value : values) target.push_back(literal(value));
    return true;
  };
  return verb.add_option(name, take, description)
      ->type_name("TEXT")
      ->expected(1, CLI::detail::expected_max_vector_size)
      ->allow_extra_args();
}

CLI::Option* addRepeated(CLI::App& verb, const std::string& name, std::vector<std::string>& target,
                         const std::string& description) {
  return addTexts(verb, name, target, description)->allow_extra_args(false);
}

CLI::Option* wholeNumber(CLI::Option* option, std::uint64_t least, std::uint64_t most) {
  return option->type_name("N")->check(
      [least, most](const std::string& text) { return problemOfNumber(text, least, most); });
}

CLI::Option* oneOf(CLI::Option* option, std::vector<std::string> words) {
  std::string kind;
  for (const std::string& word : words) kind += (kind.empty() ? "" : "|") + word;
  return option->type_name(kind)->check([words = std::move(words)](const std::string& given) {
    const bool isKnown =
        std::ranges::any_of(words, [&given](const std::string& word) { return equalsNoCase(word, given); });
    return isKnown ? std::string() : "'" + given + "': must be " + listOf(words);
  });
}

}  // namespace mailtree::cli
