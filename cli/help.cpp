// cli/help.cpp - mailtree help: describes a verb. mailtree make-manual, which is hidden: writes man pages and
// completions when the command is built.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/commands.h"
#include "cli/manual/completions.h"
#include "cli/manual/help.h"
#include "cli/manual/man_page.h"
#include "cli/manual/usage.h"
#include "cli/support/arguments.h"
#include "cli/support/saving.h"

namespace mailtree::cli {
namespace {

Exit help(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* const verb = verbNamed(app, words);
  return verb ? printHelp(*verb) : Exit::usage;
}

struct ManualOptions {
  std::string folder, date;
};

bool save(const std::string& path, const std::string& text) {
  return saveFile(path, text, Existing::replace);
}

bool savePages(const VerbFacts& verb, const VerbFacts& command, const ManualOptions& options) {
  if (!save(options.folder + "/man1/" + verb.name("-") + ".1", manPage(verb, command, options.date)))
    return false;
  for (const VerbFacts& inner : verb.verbs)
    if (!savePages(inner, command, options)) return false;
  return true;
}

bool saveCompletions(const VerbFacts& command, const std::string& folder) {
  const std::string name = command.path.front();
  const std::string bash = folder + "/bash", zsh = folder + "/zsh", fish = folder + "/fish";
  return makeFolder(bash) && save(bash + "/" + name, bashCompletion(command)) && makeFolder(zsh) &&
         save(zsh + "/_" + name, zshCompletion(command)) && makeFolder(fish) &&
         save(fish + "/" + name + ".fish", fishCompletion(command));
}

Exit makeManual(const CLI::App& app, const ManualOptions& options) {
  const VerbFacts command = factsOf(app);
  const bool isDone = makeFolder(options.folder + "/man1") && savePages(command, command, options) &&
                      saveCompletions(command, options.folder);
  return isDone ? Exit::fine : Exit::unreadable;
}

/// All verbs in a list as completions offer it.
std::string listOfVerbs(const CLI::App& app) {
  std::string list;
  for (const VerbFacts& verb : factsOf(app).verbs) list += (list.empty() ? "" : "|") + verb.path.back();
  return list;
}

}  // namespace

void addHelp(CLI::App& app, Action& action) {
  auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* verb = app.add_subcommand("help", "Describe a verb, or list all verbs");
  addTexts(*verb, "VERB", *words, "Verb, such as show or aes encrypt")->type_name(listOfVerbs(app));
  verb->footer("Example:\n  mailtree help show");
  verb->callback([&app, words, &action] { action = [&app, words] { return help(app, *words); }; });
}

void addManual(CLI::App& app, Action& action) {
  auto options = std::make_shared<ManualOptions>();
  CLI::App* verb = app.add_subcommand("make-manual", "Write man pages and completions")->group("");
  addText(*verb, "FOLDER", options->folder, "Folder to write to")->required();
  addText(*verb, "--date", options->date, "Date of the pages, such as November 22, 2026")->required();
  verb->callback(
      [&app, options, &action] { action = [&app, options] { return makeManual(app, *options); }; });
}

}  // namespace mailtree::cli
