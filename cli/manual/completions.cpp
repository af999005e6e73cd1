#include "cli/manual/completions.h"

#include <functional>
#include <sstream>

#include "cli/support/arguments.h"

namespace mailtree::cli {
namespace {

constexpr const char* kNumber = "N";

std::string joined(const std::vector<std::string>& words, const char* separator = " ") {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

/// In single quotes, which keep everything but themselves.
std::string shellQuoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? "'\\''" : std::string(1, c);
  return out + "'";
}

void forEachVerb(const VerbFacts& verb, const std::function<void(const VerbFacts&)>& visit) {
  visit(verb);
  for (const VerbFacts& inner : verb.verbs) forEachVerb(inner, visit);
}

void forEachOption(const VerbFacts& verb, const std::function<void(const OptionFacts&)>& visit) {
  for (const OptionGroup& group : verb.groups)
    for (const OptionFacts& option : group.options) visit(option);
}

/// The verbs of a command line, each after a blank: " aes encrypt"; empty for the command itself.
std::string pathOf(const VerbFacts& verb) {
  std::string path;
  for (std::size_t i = 1; i < verb.path.size(); ++i) path += " " + verb.path[i];
  return path;
}

/// The paths of all verbs, quoted, for a case of a shell.
std::vector<std::string> pathsIn(const VerbFacts& command) {
  std::vector<std::string> paths;
  forEachVerb(command, [&paths](const VerbFacts& verb) {
    if (verb.path.size() > 1) paths.push_back(shellQuoted(pathOf(verb)));
  });
  return paths;
}

/// The words that a verb takes first: its own verbs, or those its argument lists.
std::vector<std::string> wordsOf(const VerbFacts& verb) {
  std::vector<std::string> words;
  for (const VerbFacts& inner : verb.verbs) words.push_back(inner.path.back());
  if (words.empty() && !verb.arguments.empty()) words = verb.arguments.front().choices();
  return words;
}

// zsh

/// A text within a specification of _arguments, where colons and brackets have a meaning.
std::string inSpecification(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == ':' || c == '[' || c == ']' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

/// ":FILE:_files"; empty for a flag.
std::string zshValue(const OptionFacts& option) {
  if (!option.isPositional && option.value.empty()) return {};
  const std::vector<std::string> words = option.choices();
  std::string action = "_files";
  if (!words.empty()) action = "(" + joined(words) + ")";
  if (option.value == kFolder) action = "_files -/";
  if (option.value == kNumber) action = " ";
  return ":" + inSpecification(option.isPositional ? option.name() : option.value) + ":" + action;
}

std::string zshOption(const OptionFacts& option) {
  const std::string name = option.name() + (option.value.empty() ? "" : "=");
  const std::string rest = "[" + inSpecification(option.description) + "]" + zshValue(option);
  if (option.isRepeatable) return shellQuoted("*" + name + rest);
  std::vector<std::string> excludes = option.excludes;
  excludes.insert(excludes.end(), option.names.begin(), option.names.end());
  std::string specifications;
  for (const std::string& spelling : option.names) {
    const std::string form = option.value.empty() ? "" : spelling.starts_with("--") ? "=" : "+";
    std::string specification = "(" + joined(excludes) + ")";
    specification.append(spelling).append(form).append(rest);
    specifications.append(specifications.empty() ? "" : " ").append(shellQuoted(specification));
  }
  return specifications;
}

std::string zshFunction(const VerbFacts& verb) { return "_" + verb.name("_"); }

void writeZshVerbs(std::ostream& out, const VerbFacts& verb) {
  out << " \\\n    '1: :->verb' '*:: :->rest'\n  case $state in\n    verb)\n      local -a verbs=(\n";
  for (const VerbFacts& inner : verb.verbs)
    out << "        " << shellQuoted(inner.path.back() + ":" + inner.summary) << '\n';
  out << "      )\n      _describe verb verbs ;;\n    rest)\n      case $words[1] in\n";
  for (const VerbFacts& inner : verb.verbs)
    out << "        " << inner.path.back() << ") " << zshFunction(inner) << " ;;\n";
  out << "      esac ;;\n  esac\n";
}

void writeZshFunction(std::ostream& out, const VerbFacts& verb) {
  out << '\n' << zshFunction(verb) << "() {\n";
  if (!verb.verbs.empty()) out << "  local curcontext=$curcontext state line\n  typeset -A opt_args\n";
  out << "  _arguments -s" << (verb.verbs.empty() ? "" : " -C");
  forEachOption(verb, [&out](const OptionFacts& option) { out << " \\\n    " << zshOption(option); });
  for (const OptionFacts& argument : verb.arguments)
    out << " \\\n    " << shellQuoted((argument.isRepeatable ? "*" : "") + zshValue(argument));
  if (!verb.verbs.empty())
    writeZshVerbs(out, verb);
  else
    out << '\n';
  out << "}\n";
}

// fish

void writeFishOption(std::ostream& out, const std::string& begin, const OptionFacts& option) {
  out << begin;
  for (const std::string& name : option.names)
    out << (name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1));
  if (const std::vector<std::string> words = option.choices(); !words.empty())
    out << " -x -a " << shellQuoted(joined(words));
  else if (option.value == kFolder)
    out << " -x -a '(__fish_complete_directories)'";
  else if (option.value == kNumber)
    out << " -x";
  else if (!option.value.empty())
    out << " -r -F";
  out << " -d " << shellQuoted(option.description) << '\n';
}

void writeFishVerb(std::ostream& out, const std::string& command, const VerbFacts& verb) {
  const std::string begin =
      "complete -c " + command + " -n \"__" + command + "_is " + shellQuoted(pathOf(verb)) + "\"";
  for (const VerbFacts& inner : verb.verbs)
    out << begin << " -f -a " << inner.path.back() << " -d " << shellQuoted(inner.summary) << '\n';
  if (const std::vector<std::string> words = wordsOf(verb); verb.verbs.empty() && !words.empty())
    out << begin << " -f -a " << shellQuoted(joined(words)) << '\n';
  forEachOption(verb, [&](const OptionFacts& option) { writeFishOption(out, begin, option); });
}

}  // namespace

std::string bashCompletion(const VerbFacts& command) {
  const std::string name = command.path.front();
  std::ostringstream values, options, words;
  forEachVerb(command, [&](const VerbFacts& verb) {
    std::vector<std::string> names;
    forEachOption(verb, [&](const OptionFacts& option) {
      names.push_back(option.name());
      if (option.value.empty()) return;
      std::vector<std::string> patterns;
      for (const std::string& spelling : option.names)
        patterns.push_back(shellQuoted(pathOf(verb) + ":" + spelling));
      values << "    " << joined(patterns, "|") << ") ";
      if (const std::vector<std::string> choices = option.choices(); !choices.empty())
        values << "_" << name << "_words " << shellQuoted(joined(choices));
      else if (option.value == kFolder)
        values << "_" << name << "_names -d";
      else if (option.value != kNumber)
        values << "_" << name << "_names -f";
      values << "; return ;;\n";
    });
    options << "      " << shellQuoted(pathOf(verb)) << ") _" << name << "_words "
            << shellQuoted(joined(names)) << " ;;\n";
    if (const std::vector<std::string> first = wordsOf(verb); !first.empty())
      words << "    " << shellQuoted(pathOf(verb)) << ") _" << name << "_words " << shellQuoted(joined(first))
            << " ;;\n";
  });
  std::string script = R"(# bash completion for @

_@_words() {
  COMPREPLY=($(compgen -W "$1" -- "$cur"))
}

_@_names() {
  local IFS=$'\n'
  compopt -o filenames 2>/dev/null
  COMPREPLY=($(compgen "$1" -- "$cur"))
}

_@() {
  local cur=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} verb='' i
  # --option=value comes as three words.
  if [ "$cur" = = ]; then
    cur=''
  elif [ "$before" = = ]; then
    before=${COMP_WORDS[COMP_CWORD-2]}
  fi
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "$verb ${COMP_WORDS[i]}" in
      PATHS) verb="$verb ${COMP_WORDS[i]}" ;;
    esac
  done
  COMPREPLY=()
  case "$verb:$before" in
VALUES  esac
  if [[ $cur == -* ]]; then
    case "$verb" in
OPTIONS    esac
    return
  fi
  case "$verb" in
WORDS    *) _@_names -f ;;
  esac
}

complete -F _@ @
)";
  const auto put = [&script](const std::string& word, const std::string& text) {
    for (std::size_t at = 0; (at = script.find(word, at)) != std::string::npos; at += text.size())
      script.replace(at, word.size(), text);
  };
  put("@", name);
  put("PATHS", joined(pathsIn(command), "|"));
  put("VALUES", values.str());
  put("OPTIONS", options.str());
  put("WORDS ", words.str());
  return script;
}

std::string zshCompletion(const VerbFacts& command) {
  std::ostringstream out;
  out << "#compdef " << command.path.front() << '\n';
  forEachVerb(command, [&out](const VerbFacts& verb) { writeZshFunction(out, verb); });
  out << '\n' << zshFunction(command) << " \"$@\"\n";
  return out.str();
}

std::string fishCompletion(const VerbFacts& command) {
  const std::string name = command.path.front();
  std::ostringstream out;
  out << "# fish completion for " << name << "\n\n"
      << "# Whether these are the verbs so far.\nfunction __" << name << "_is\n  set -l verb\n"
      << "  for word in (commandline -opc)[2..-1]\n    switch \"$verb $word\"\n      case "
      << joined(pathsIn(command)) << "\n        set verb \"$verb $word\"\n    end\n  end\n"
      << "  test \"$verb\" = \"$argv\"\nend\n\n";
  forEachVerb(command, [&](const VerbFacts& verb) { writeFishVerb(out, name, verb); });
  return out.str();
}

}  // namespace mailtree::cli
