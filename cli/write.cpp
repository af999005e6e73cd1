// cli/write.cpp - mailtree write: loads a message and writes it back as MIME.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/output_file.h"
#include "cli/writing/differences.h"

namespace mailtree::cli {
namespace {

struct WriteOptions {
  std::vector<std::string> files;
  Destination output;
  WriteForm form;
  bool check = false;
};

Exit write(const std::string& file, const WriteOptions& options) {
  std::optional<Message> message = loadMessageToWrite(file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(file, message->limits());
  return worse(result, writeMessage(*message->root, options.output, options.form));
}

/// Prints the differences that writing would make; writes nothing.
Exit check(const std::string& file, const WriteOptions& options) {
  DataBuffer received, written;
  if (!readFile(file, received)) return Exit::unreadable;
  std::optional<Message> message = loadMessageToWrite(file, received);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(file, message->limits());
  StringBuffer text;
  LogMemory log;
  if (!assembleMessage(*message->root, text, log, options.form) || !written.append(text)) {
    reportError(file, lastError(log, "the message could not be written completely"));
    return Exit::unreadable;
  }
  const std::vector<std::string> lines = differencesInBytes(received.view(), written.view());
  for (const std::string& line : lines) std::cout << line << '\n';
  if (lines.empty()) {
    std::cout << "no differences\n";
    return result;
  }

  message = loadMessageToWrite(file, received);
  std::optional<Message> after = loadMessageToWrite(file, written);
  if (!message || !after) return Exit::unreadable;
  const std::vector<std::string> seen = displayedDifferences(*message->root, *after->root);
  for (const std::string& line : seen) std::cout << "a mail client shows: " << line << '\n';
  if (seen.empty()) std::cout << "a mail client shows no difference\n";
  return worse(result, Exit::negative);
}

}  // namespace

void addWrite(CLI::App& app, Action& action) {
  auto options = std::make_shared<WriteOptions>();
  CLI::App* verb = app.add_subcommand("write", "Load a message and write it back as MIME");
  addMessageFiles(*verb, options->files);
  addOutput(*verb, options->output);
  verb->add_flag("--check", options->check,
                 "Write nothing; list the differences from the input, status 1 when there are any")
      ->excludes("--output");
  verb->add_flag("--8bit-to-qp", options->form.qpFor8bit, "Write 8bit parts as quoted-printable");
  verb->add_flag("--dot-stuff", options->form.dotStuff,
                 "Double the dot at the start of lines, as SMTP requires");
  verb->footer("Example:\n  mailtree write --8bit-to-qp mail.eml -o clean.eml");
  verb->callback([options, &action] {
    action = [options] {
      return forEachFile(
          options->files, /*hasTitles=*/true,
          [&options](const std::string& file) {
            return options->check ? check(file, *options) : write(file, *options);
          },
          options->check ? nullptr : "write without --check");
    };
  });
}

}  // namespace mailtree::cli
