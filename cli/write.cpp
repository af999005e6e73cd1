// cli/write.cpp - mailtree write: a message loaded and written back as MIME.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"

namespace mailtree::cli {
namespace {

/// Fields of the library's own; they never leave through the command.
constexpr const char* kInternalPrefix = "SVX-";

struct WriteOptions {
  std::string file;
  std::string output;
  bool qpFor8bit = false;
  bool dotStuff = false;
};

bool assemble(Message& message, const WriteOptions& options, _svOutput& sink, LogBase& log) {
  StringBuffer unused;
  ProgressContext progress(nullptr);
  return message.root->assembleMimeBody2(unused, &sink, options.dotStuff, kInternalPrefix, progress, log,
                                         /*depth=*/0, options.qpFor8bit, /*isTop=*/true) &&
         !sink.failed();
}

bool writeToFile(Message& message, const WriteOptions& options, LogBase& log) {
  FileOutput sink;
  return sink.open(options.output.c_str(), log) && assemble(message, options, sink, log) && sink.commit(log);
}

bool writeToStandardOutput(Message& message, const WriteOptions& options, LogBase& log) {
  StreamOutput sink(std::cout);
  return assemble(message, options, sink, log);
}

Exit write(const WriteOptions& options) {
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, message->limits());
  LogMemory log;
  if (options.output.empty() || options.output == "-") {
    writeToStandardOutput(*message, options, log);
    return graver(result, finishStandardOutput());
  }
  if (writeToFile(*message, options, log)) return result;
  complain(options.output, lastError(log, "cannot be written"));
  return Exit::unreadable;
}

}  // namespace

void addWrite(CLI::App& app, Action& action) {
  auto options = std::make_shared<WriteOptions>();
  CLI::App* verb = app.add_subcommand("write", "Load a message and write it back as MIME");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addText(*verb, "-o,--output", options->output,
          "File to write, whole or not at all; standard output without it")
      ->check([](const std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); });
  verb->add_flag("--8bit-to-qp", options->qpFor8bit, "Write 8bit parts as quoted-printable");
  verb->add_flag("--dot-stuff", options->dotStuff,
                 "Double leading dots of unencoded bodies, as SMTP asks for");
  verb->footer("Example:\n  mailtree write --8bit-to-qp mail.eml -o clean.eml");
  verb->callback([options, &action] { action = [options] { return write(*options); }; });
}

}  // namespace mailtree::cli
