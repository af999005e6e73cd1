#include "cli/message/output.h"

#include <algorithm>
#include <iostream>

#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/support/terminal.h"
#include "mailtree/message/output.h"

namespace mailtree::cli {
namespace {

/// Whether loading and processing lost nothing for lack of memory.
bool isWhole(LogBase& log) {
  if (abandonedOperations() != 0) log.logError(kNoMemory);
  return abandonedOperations() == 0;
}

WriteOptions optionsOf(const WriteForm& form) {
  return {.dotStuff = form.dotStuff, .asciiOnly = form.qpFor8bit};
}

/// @param sink  where to write; when null, `text` receives the message.
bool assemble(Email2& root, const WriteForm& form, _svOutput* sink, StringBuffer& text, LogBase& log) {
  return assembleTree(root, optionsOf(form), sink, text, log) && isWhole(log);
}

bool writeToFile(Email2& root, const Destination& to, const WriteForm& form, LogBase& log) {
  FileOutput sink;
  StringBuffer unused;
  return sink.open(to.path.c_str(), log, to.existing(), form.readers) &&
         assemble(root, form, &sink, unused, log) && sink.commit(log);
}

Exit writeToStandardOutput(Email2& root, const WriteForm& form, ErrorLog& log) {
  StreamOutput sink(std::cout);
  StringBuffer shown;
  const bool isTerminal = standardOutputIsTerminal();
  const bool isWritten = assemble(root, form, isTerminal ? nullptr : &sink, shown, log);
  writeHarmless(shown.view());
  const Exit result = finishStandardOutput();
  if (isWritten || result != Exit::fine) return result;
  reportError("standard output", log.errorOr("the message could not be written completely"));
  return Exit::unreadable;
}

}  // namespace

Readers readersOf(const mailtree::Message& message) {
  const bool isDecrypted = std::ranges::any_of(message.security().layers, [](const SecurityLayer& layer) {
    return layer.isEncrypted() && layer.isOpened;
  });
  const Result<void> checked = message.check();
  const bool answersEncrypted = !checked && checked.error().code == ErrorCode::inClear;
  return isDecrypted || answersEncrypted ? Readers::owner : Readers::usual;
}

std::string withLfForCrlf(std::string text) {
  std::size_t size = 0;
  for (std::size_t at = 0; at < text.size(); ++at)
    if (text[at] != '\r' || at + 1 == text.size() || text[at + 1] != '\n') text[size++] = text[at];
  text.resize(size);
  return text;
}

bool assembleMessage(Email2& root, StringBuffer& out, LogBase& log, const WriteForm& form) {
  return assemble(root, form, nullptr, out, log);
}

Exit writeMessage(Email2& root, const Destination& to, const WriteForm& form) {
  ErrorLog log;
  if (isStandardOutput(to.path)) return writeToStandardOutput(root, form, log);
  if (leadsToTerminal(to.path)) {
    StringBuffer shown;
    TextFile terminal(to);
    if (assemble(root, form, nullptr, shown, log))
      return terminal.write(shown.text()) && terminal.commit() ? Exit::fine : Exit::unreadable;
  } else if (writeToFile(root, to, form, log)) {
    return Exit::fine;
  }
  reportError(to.path, problemOfOutput(to.path, to.existing(), log.errorOr("cannot be written")));
  return Exit::unreadable;
}

Exit writeMessage(Email2& root, Input& input, const Destination* to, const WriteForm& form) {
  if (to) return writeMessage(root, *to, form);
  ErrorLog log;
  StringBuffer text;
  if (assemble(root, form, nullptr, text, log)) {
    input.rewritten = text.extractString();
    return Exit::fine;
  }
  reportError(input.name, log.errorOr("the message could not be written completely"));
  return Exit::unreadable;
}

Exit writeMessage(const mailtree::Message& message, const Destination& to, const WriteOptions& options) {
  const Result<std::string> text = message.toString(options);
  if (!text) {
    reportError(isStandardOutput(to.path) ? "standard output" : to.path, text.error().message);
    return Exit::unreadable;
  }
  TextFile file(to, readersOf(message));
  return file.write(*text) && file.commit() ? Exit::fine : Exit::unreadable;
}

}  // namespace mailtree::cli
