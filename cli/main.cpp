// mailtree: mail messages as trees, on the command line.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "cli/commands.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/base/Output.h"

namespace mailtree::cli {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 fine, 1 a negative answer, 2 wrong usage, 3 a file that cannot be read or written,\n"
    "4 a limit was met (the result is still given).\n"
    "Each command has its own --help with an example.";

/// A file that is opened must not get the number of a standard stream that the caller closed: what is said to that
/// stream would go into it. Opened the wrong way round, the streams still fail as closed ones do.
bool holdStandardStreams() {
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_RDONLY};
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
    if (::fcntl(stream, F_GETFD) < 0 && ::open("/dev/null", kModes[stream]) != stream) return false;
  return true;
}

/// What ends a program that does not say otherwise: keys, other programs, and limits it was given.
constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGXCPU, SIGXFSZ};

/// Leaves no unfinished file and ends as the signal would have ended it.
extern "C" void endBySignal(int signal) {
  FileOutput::removeUnfinished();
  ::raise(signal);  // blocked until this returns, and has its default effect then
}

void cleanUpAtSignals() {
  struct sigaction action {};
  action.sa_handler = endBySignal;
  action.sa_flags = SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  for (const int signal : kEndingSignals) sigaddset(&action.sa_mask, signal);
  for (const int signal : kEndingSignals) {
    struct sigaction before {};
    // Who started this with nohup wants it to go on.
    if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
      ::sigaction(signal, &action, nullptr);
  }
}

int usageError(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
  reportError(error.what());
  std::cerr << "Run with --help for usage.\n";
  return static_cast<int>(Exit::usage);
}

int run(int argc, char** argv) {
  CLI::App app("Loads mail messages into trees: shows them, reads them, writes them back.", "mailtree");
  app.set_version_flag("--version", "mailtree " MAILTREE_VERSION);
  app.require_subcommand(1);
  app.footer(kFooter);

  Action action;
  addShow(app, action);
  addTree(app, action);
  addHeaders(app, action);
  addBody(app, action);
  addAttachments(app, action);
  addRelated(app, action);
  addMessages(app, action);
  addReport(app, action);
  addExtract(app, action);
  addWrite(app, action);
  addXml(app, action);
  addMht(app, action);
  addCompose(app, action);
  addEdit(app, action);
  addTidy(app, action);
  addReply(app, action);
  addForward(app, action);
  addMerge(app, action);
  addSign(app, action);
  addEncrypt(app, action);
  addDecrypt(app, action);
  addVerify(app, action);
  addAes(app, action);
  try {
    app.parse(protectedArguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    return usageError(app, error);
  }
  return static_cast<int>(action());
}

}  // namespace
}  // namespace mailtree::cli

int main(int argc, char** argv) {
  if (!mailtree::cli::holdStandardStreams()) return static_cast<int>(mailtree::cli::Exit::unreadable);
  try {
    mailtree::cli::cleanUpAtSignals();
    return mailtree::cli::run(argc, argv);
  } catch (const std::exception& error) {  // out of memory, or a stream that throws
    mailtree::cli::reportError(error.what());
    return static_cast<int>(mailtree::cli::Exit::unreadable);
  }
}
