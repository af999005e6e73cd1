// cli/tidy.cpp - mailtree tidy: a message cleaned up.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"
#include "cli/output.h"
#include "cli/writing/structure.h"

namespace mailtree::cli {
namespace {

struct TidyOptions {
  std::string file;
  bool unspam = false, stripPaths = false, safeEncodings = false;
  std::string output;
};

Exit tidy(const TidyOptions& options) {
  if (!options.unspam && !options.stripPaths && !options.safeEncodings) {
    complain("one of --unspam, --strip-paths and --safe-encodings is needed");
    return Exit::usage;
  }
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());

  Email2& email = *message->root;
  if (isSigned(email))
    complain(options.file, "warning: the message is signed, and its signature may no longer fit");
  LogNull log;
  if (options.unspam) email.unSpamify(log);
  if (options.stripPaths) email.removeAttachmentPaths(log);
  if (options.safeEncodings) email.safeguardBodies(log);
  return graver(limits, writeMessage(email, options.output));
}

}  // namespace

void addTidy(CLI::App& app, Action& action) {
  auto options = std::make_shared<TidyOptions>();
  CLI::App* verb = app.add_subcommand("tidy", "Clean a message up");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  verb->add_flag("--unspam", options->unspam, "Take out of the HTML what is there to defeat filters");
  verb->add_flag("--strip-paths", options->stripPaths, "Reduce the names of attachments to the file's own");
  verb->add_flag("--safe-encodings", options->safeEncodings,
                 "Encode 8-bit and binary content, so that any server passes it on");
  addOutput(*verb, options->output);
  verb->footer(
      "At least one of the three is needed. What is shown of a page is not made safe by --unspam.\n"
      "Example:\n  mailtree tidy --strip-paths --safe-encodings mail.eml -o clean.eml");
  verb->callback([options, &action] { action = [options] { return tidy(*options); }; });
}

}  // namespace mailtree::cli
