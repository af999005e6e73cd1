#include "cli/support/arguments.h"

#include <CLI/CLI.hpp>

namespace mailtree::cli {
namespace {

/// Appended to an argument to hide a closing bracket from the parser. No argument of a process contains it.
constexpr char kGuard = '\0';

bool looksLikeList(std::string_view argument) {
  return (argument.starts_with('[') && argument.ends_with(']')) || argument == "{}";
}

std::string literal(std::string argument) {
  if (!argument.empty() && argument.back() == kGuard) argument.pop_back();
  return argument;
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

}  // namespace mailtree::cli
