#include "cli/manual/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <optional>
#include <utility>

#include "cli/support/errors.h"

namespace mailtree::cli {
namespace {

/// The number of letters to insert, remove, replace or swap with their neighbour to get from one word to the
/// other.
std::size_t distanceOf(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before, last(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    before = std::exchange(last, row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      const bool isSwapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (isSwapped) row[j] = std::min(row[j], before[j - 2] + 1);
    }
  }
  return row[b.size()];
}

/// "; did you mean 'show'?", or nothing when no known word is near.
std::string adviceFor(std::string_view word, const std::vector<std::string>& known) {
  constexpr std::size_t kLongest = 40;  // of a word worth comparing
  if (word.empty() || word.size() > kLongest) return {};
  std::size_t least = word.size() / 3 + 2;
  std::string nearest;
  for (const std::string& candidate : known) {
    const std::size_t distance = candidate.starts_with(word) ? 1 : distanceOf(word, candidate);
    if (distance >= std::min(least, candidate.size())) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest.empty() ? std::string() : "; did you mean '" + nearest + "'?";
}

std::vector<std::string> verbsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* verb : app.get_subcommands({}))
    if (!verb->get_group().empty()) names.push_back(verb->get_name());
  return names;
}

std::vector<std::string> optionsOf(const CLI::App& verb) {
  std::vector<std::string> names;
  for (const CLI::Option* option : verb.get_options({}))
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

/// " of 'aes'", empty for the command itself.
std::string ofVerb(const CLI::App& verb) {
  return verb.get_parent() ? " of '" + verb.get_name() + "'" : std::string();
}

/// An argument that no option and no verb takes: an option if there is one, because a misspelled option also
/// leaves its value over, and can be the reason why another is missing.
std::optional<std::string> strangerIn(const CLI::App& app) {
  const std::vector<std::string> rest = app.remaining(/*recurse=*/true);
  const auto option = std::find_if(rest.begin(), rest.end(), [](const std::string& argument) {
    return argument.size() > 1 && argument.starts_with('-');
  });
  if (option != rest.end()) return option->substr(0, option->find('='));
  return rest.empty() ? std::nullopt : std::optional(rest.front());
}

std::string problemOf(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& verb = parsedVerb(app);
  const std::optional<std::string> stranger = strangerIn(app);
  if (stranger && stranger->starts_with("-"))
    return "'" + *stranger + "' is not an option" + ofVerb(verb) + adviceFor(*stranger, optionsOf(verb));
  if (const std::vector<std::string> verbs = verbsOf(verb); !verbs.empty())
    return "a verb" + ofVerb(verb) + " is required, such as " + verbs.front();
  if (stranger && dynamic_cast<const CLI::ExtrasError*>(&error))
    return "unexpected argument '" + *stranger + "'";
  return error.what();
}

void reportWrongUse(const std::string& problem) {
  reportError(problem);
  std::cerr << "Run with --help for usage.\n";
}

}  // namespace

const CLI::App* verbNamed(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* verb = &app;
  for (const std::string& word : words) {
    const std::vector<const CLI::App*> inner = verb->get_subcommands({});
    if (word.starts_with('-') || inner.empty()) break;
    const auto named = std::find_if(inner.begin(), inner.end(),
                                    [&word](const CLI::App* one) { return one->get_name() == word; });
    if (named == inner.end()) {
      reportWrongUse("'" + word + "' is not a verb" + ofVerb(*verb) + adviceFor(word, verbsOf(*verb)));
      return nullptr;
    }
    verb = *named;
  }
  return verb;
}

const CLI::App& parsedVerb(const CLI::App& app) {
  const CLI::App* verb = &app;
  while (!verb->get_subcommands().empty()) verb = verb->get_subcommands().front();
  return *verb;
}

Exit reportUsage(const CLI::App& app, const CLI::ParseError& error) {
  reportWrongUse(problemOf(app, error));
  return Exit::usage;
}

}  // namespace mailtree::cli
