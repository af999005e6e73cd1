// cli/write.cpp - mailtree write: a message loaded and written back as MIME.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"
#include "cli/output.h"

namespace mailtree::cli {
namespace {

struct WriteOptions {
  std::string file;
  std::string output;
  WriteForm form;
};

Exit write(const WriteOptions& options) {
  std::optional<Message> message = loadMessageToWrite(options.file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, message->limits());
  return graver(result, writeMessage(*message->root, options.output, options.form));
}

}  // namespace

void addWrite(CLI::App& app, Action& action) {
  auto options = std::make_shared<WriteOptions>();
  CLI::App* verb = app.add_subcommand("write", "Load a message and write it back as MIME");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addOutput(*verb, options->output);
  verb->add_flag("--8bit-to-qp", options->form.qpFor8bit, "Write 8bit parts as quoted-printable");
  verb->add_flag("--dot-stuff", options->form.dotStuff,
                 "Double leading dots of unencoded bodies, as SMTP asks for");
  verb->footer("Example:\n  mailtree write --8bit-to-qp mail.eml -o clean.eml");
  verb->callback([options, &action] { action = [options] { return write(*options); }; });
}

}  // namespace mailtree::cli
