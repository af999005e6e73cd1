// cli/write.cpp - mailtree write: loads a message and writes it back as MIME.
#include <memory>

#include "cli/commands.h"
#include "cli/message/output.h"
#include "cli/message/store_output.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/writing/differences.h"

namespace mailtree::cli {
namespace {

struct WriteOptions {
  SourceArguments sources;
  StreamSettings stream;
  Destination output;
  std::string store;
  WriteForm form;
  bool check = false;
};

Exit write(Input& input, const WriteOptions& options) {
  std::optional<Message> message = loadMessageToWrite(input);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(input.name, message->limits());
  return worse(result, writeMessage(*message->root, input, options.store.empty() ? &options.output : nullptr,
                                    options.form));
}

/// Prints the differences that writing would make; writes nothing.
Exit check(Input& input, const WriteOptions& options) {
  std::optional<Message> message = loadMessageToWrite(input);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(input.name, message->limits());
  StringBuffer text;
  LogMemory log;
  if (!assembleMessage(*message->root, text, log, options.form)) {
    reportError(input.name, lastError(log, "the message could not be written completely"));
    return Exit::unreadable;
  }
  const std::vector<std::string> lines = differencesInBytes(input.bytes(), text.view());
  for (const std::string& line : lines) standardOutput() << line << '\n';
  if (lines.empty()) {
    standardOutput() << "no differences\n";
    return result;
  }

  message = loadMessageToWrite(input);
  std::optional<Message> after = loadMessageToWrite(input.name, text.view());
  if (!message || !after) return Exit::unreadable;
  const std::vector<std::string> seen = displayedDifferences(*message->root, *after->root);
  for (const std::string& line : seen) standardOutput() << "a mail client shows: " << line << '\n';
  if (seen.empty()) standardOutput() << "a mail client shows no difference\n";
  return worse(result, Exit::negative);
}

}  // namespace

void addWrite(Verb app, Action& action) {
  auto options = std::make_shared<WriteOptions>();
  const Verb verb = app.addVerb("write", "Load a message and write it back as MIME");
  addSources(verb, options->sources);
  addOutput(verb, options->output);
  addStoreOutput(verb, "--out", options->store, kStoreDescription).excludes("--output");
  verb.addFlag("--check", options->check,
               "Write nothing; list the differences from the input, status 1 when there are any")
      .excludes("--output")
      .excludes("--out");
  verb.addFlag("--8bit-to-qp", options->form.qpFor8bit, "Write 8bit parts as quoted-printable");
  verb.addFlag("--dot-stuff", options->form.dotStuff,
               "Double the dot at the start of lines, as SMTP requires");
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "Example:\n  mailtree write --8bit-to-qp mail.eml -o clean.eml\n"
      "  mailtree write --8bit-to-qp box.mbox --out mbox:clean.mbox");
  verb.whenChosen([options, &action] {
    action = [options] {
      if (options->check)
        return forEachMessage(options->sources, {.stream = options->stream},
                              [&options](Input& input) { return check(input, *options); });
      return rewriteEachMessage(options->sources, options->store, "write without --check", options->stream,
                                [&options](Input& input) { return write(input, *options); });
    };
  });
}

}  // namespace mailtree::cli
