// mailtree: mail messages as trees, on the command line.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <string_view>

#include "cli/commands.h"
#include "cli/manual/help.h"
#include "cli/manual/usage.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/base/Output.h"

namespace mailtree::cli {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 success, 1 negative answer, 2 wrong usage, 3 a file cannot be read or written, "
    "4 a limit was exceeded (the result is still written), 130 interrupted.\n\n"
    "\"mailtree help VERB\" describes a verb, with an example.";

/// Keeps an opened file from getting the number of a standard stream that the caller closed, because
/// output for the stream would go into it. /dev/null is opened in the wrong direction, so the streams fail
/// as if closed.
bool reserveStandardStreams() {
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_RDONLY};
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
    if (::fcntl(stream, F_GETFD) < 0 && ::open("/dev/null", kModes[stream]) != stream) return false;
  return true;
}

/// Signals that end a program by default.
constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU, SIGXFSZ};

/// Removes unfinished files, then ends as by the signal itself.
extern "C" void endBySignal(int signal) {
  FileOutput::removeUnfinished();
  ::raise(signal);  // delivered with its default effect when this returns
}

void cleanUpAtSignals() {
  struct sigaction action {};
  action.sa_handler = endBySignal;
  action.sa_flags = SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  for (const int signal : kEndingSignals) sigaddset(&action.sa_mask, signal);
  for (const int signal : kEndingSignals) {
    struct sigaction before {};
    // Signals ignored by the caller, as under nohup, stay ignored.
    if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
      ::sigaction(signal, &action, nullptr);
  }
}

constexpr struct {
  std::string_view name;
  void (*add)(Verb, Action&);
} kVerbs[] = {{"show", addShow},       {"tree", addTree},         {"list", addList},
              {"find", addFind},       {"copy", addCopy},         {"export", addExport},
              {"headers", addHeaders}, {"body", addBody},         {"attachments", addAttachments},
              {"related", addRelated}, {"messages", addMessages}, {"report", addReport},
              {"extract", addExtract}, {"write", addWrite},       {"xml", addXml},
              {"mht", addMht},         {"compose", addCompose},   {"edit", addEdit},
              {"tidy", addTidy},       {"reply", addReply},       {"forward", addForward},
              {"resend", addResend},   {"send", addSend},         {"merge", addMerge},
              {"sign", addSign},       {"encrypt", addEncrypt},   {"decrypt", addDecrypt},
              {"verify", addVerify},   {"check", addCheck},       {"aes", addAes},
              {"help", addHelp},       {"make-manual", addManual}};
/// Verbs that tell about all of them.
constexpr std::string_view kTellers[] = {"help", "make-manual"};

/// Adds the verb that is given: to define the options of all takes as long as to show some messages. Adds all
/// where it is none, and where all are told about.
void addVerbs(Verb command, Action& action, std::string_view given) {
  const auto* const only = std::ranges::find(kVerbs, given, [](const auto& verb) { return verb.name; });
  if (only != std::end(kVerbs) && std::ranges::find(kTellers, given) == std::end(kTellers))
    return only->add(command, action);
  for (const auto& verb : kVerbs) verb.add(command, action);
}

/// --help and --version come as errors too.
Exit exitForParseError(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::CallForHelp*>(&error)) return printHelp(parsedVerb(app));
  if (!dynamic_cast<const CLI::CallForVersion*>(&error)) return reportUsage(app, error);
  std::cout << error.what() << '\n';
  return finishStandardOutput();
}

Exit run(int argc, char** argv) {
  CLI::App app("Shows, checks, changes and writes mail messages.", "mailtree");
  app.set_version_flag("--version", "mailtree " MAILTREE_VERSION);
  app.require_subcommand(1);
  app.footer(kFooter);

  const Verb command(&app);
  Action action;
  addVerbs(command, action, argc > 1 ? argv[1] : "");
  if (!verbNamed(app, {argv + std::min(argc, 1), argv + argc})) return Exit::usage;
  try {
    app.parse(protectedArguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    return exitForParseError(app, error);
  }
  return action();
}

}  // namespace
}  // namespace mailtree::cli

int main(int argc, char** argv) {
  if (!mailtree::cli::reserveStandardStreams()) return static_cast<int>(mailtree::cli::Exit::unreadable);
  try {
    mailtree::cli::cleanUpAtSignals();
    return static_cast<int>(mailtree::cli::run(argc, argv));
  } catch (const std::exception& error) {  // out of memory, or a stream that throws
    mailtree::cli::reportError(error.what());
    return static_cast<int>(mailtree::cli::Exit::unreadable);
  }
}
