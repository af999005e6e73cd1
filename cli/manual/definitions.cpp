#include "cli/manual/definitions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>

namespace mailtree::cli {
namespace {

std::vector<std::string> namesOf(const std::set<CLI::Option*>& options) {
  std::vector<std::string> names;
  names.reserve(options.size());
  for (const CLI::Option* option : options) names.push_back(option->get_name());
  std::sort(names.begin(), names.end());
  return names;
}

OptionFacts factsOf(const CLI::Option& option) {
  OptionFacts facts;
  facts.isPositional = option.get_positional();
  if (facts.isPositional) facts.names.push_back(option.get_name(/*positional=*/true));
  for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
  if (option.get_type_size() != 0) facts.value = option.get_type_name();
  facts.description = option.get_description();
  facts.needs = namesOf(option.get_needs());
  facts.excludes = namesOf(option.get_excludes());
  facts.isRequired = option.get_required();
  facts.isRepeatable = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
  return facts;
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

/// A footer has paragraphs of prose, whose line breaks mean nothing but at empty lines, and indented examples
/// after "Example:".
void readFooter(const std::string& footer, VerbFacts& facts) {
  bool isNew = true, isExample = false;
  for (const std::string& line : linesOf(footer)) {
    const bool isHeading = line == "Example:";
    if (isExample && line.starts_with("  "))
      facts.examples.push_back(line.substr(2));
    else if (!isHeading && !line.empty() && isNew)
      facts.paragraphs.push_back(line);
    else if (!isHeading && !line.empty())
      facts.paragraphs.back() += " " + line;
    isExample = isHeading || (isExample && !line.empty());
    isNew = isHeading || line.empty();
  }
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
  std::string text;
  for (const std::string& word : words) text.append(text.empty() ? "" : separator).append(word);
  return text;
}

}  // namespace

std::vector<std::string> OptionFacts::choices() const {
  std::vector<std::string> words;
  if (value.find('|') == std::string::npos) return words;
  std::size_t begin = 0;
  for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
    end = value.find('|', begin);
    words.push_back(value.substr(begin, end - begin));
  }
  return words;
}

std::string OptionFacts::fullDescription() const {
  std::vector<std::string> remarks;
  if (isRequired && !isPositional) remarks.emplace_back("required");
  if (!needs.empty()) remarks.push_back("only with " + joined(needs, ", "));
  if (!excludes.empty()) remarks.push_back("not with " + joined(excludes, ", "));
  return remarks.empty() ? description : description + " (" + joined(remarks, "; ") + ")";
}

std::string VerbFacts::name(std::string_view separator) const { return joined(path, separator); }

std::string VerbFacts::usage() const {
  std::string text = name();
  if (!verbs.empty()) text += " VERB";
  text += " [OPTIONS]";
  for (const OptionFacts& argument : arguments) {
    const std::string shown = argument.name() + (argument.isRepeatable ? "..." : "");
    text += argument.isRequired ? " " + shown : " [" + shown + "]";
  }
  return text;
}

VerbFacts factsOf(const CLI::App& verb) {
  VerbFacts facts;
  for (const CLI::App* level = &verb; level; level = level->get_parent())
    facts.path.insert(facts.path.begin(), level->get_name());
  facts.summary = verb.get_description();
  for (const std::string& title : verb.get_groups()) {
    OptionGroup group{title, {}};
    for (const CLI::Option* option :
         verb.get_options([&](const CLI::Option* o) { return o->get_group() == title && !title.empty(); }))
      (option->get_positional() ? facts.arguments : group.options).push_back(factsOf(*option));
    if (!group.options.empty()) facts.groups.push_back(std::move(group));
  }
  for (const CLI::App* inner : verb.get_subcommands({}))
    if (!inner->get_group().empty()) facts.verbs.push_back(factsOf(*inner));
  readFooter(verb.get_footer(), facts);
  return facts;
}

}  // namespace mailtree::cli
