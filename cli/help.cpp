// cli/help.cpp - mailtree help: describes a verb. mailtree make-manual, which is hidden: writes man pages and
// completions when the command is built.
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

Exit help(Verb app, const std::vector<std::string>& words) {
  const CLI::App* const verb = verbNamed(app.parser(), words);
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

Exit makeManual(Verb app, const ManualOptions& options) {
  const VerbFacts command = factsOf(app.parser());
  const bool isDone = makeFolder(options.folder + "/man1") && savePages(command, command, options) &&
                      saveCompletions(command, options.folder);
  return isDone ? Exit::fine : Exit::unreadable;
}

/// All verbs in a list as completions offer it.
std::string listOfVerbs(Verb app) {
  std::string list;
  for (const VerbFacts& verb : factsOf(app.parser()).verbs)
    list += (list.empty() ? "" : "|") + verb.path.back();
  return list;
}

}  // namespace

void addHelp(Verb app, Action& action) {
  auto words = std::make_shared<std::vector<std::string>>();
  const Verb verb = app.addVerb("help", "Describe a verb, or list all verbs");
  verb.addTexts("VERB", *words, "Verb, such as show or aes encrypt").kind(listOfVerbs(app));
  verb.setFooter("Example:\n  mailtree help show");
  verb.whenChosen([app, words, &action] { action = [app, words] { return help(app, *words); }; });
}

void addManual(Verb app, Action& action) {
  auto options = std::make_shared<ManualOptions>();
  const Verb verb = app.addHiddenVerb("make-manual", "Write man pages and completions");
  verb.addText("FOLDER", options->folder, "Folder to write to").required();
  verb.addText("--date", options->date, "Date of the pages, such as November 22, 2026").required();
  verb.whenChosen([app, options, &action] { action = [app, options] { return makeManual(app, *options); }; });
}

}  // namespace mailtree::cli
