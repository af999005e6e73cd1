// cli/headers.cpp - mailtree headers: prints header fields, decoded or raw.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/terminal.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree::cli {
namespace {

struct HeadersOptions {
  std::string file;
  std::vector<std::string> names;
  bool raw = false;

  bool wants(std::string_view name) const {
    return names.empty() || std::any_of(names.begin(), names.end(),
                                        [name](const auto& wanted) { return equalsNoCase(wanted, name); });
  }
};

/// Raw text keeps its line folding: byte for byte in a file, only harmless characters on a terminal.
std::string rawText(std::string_view value) {
  if (!standardOutputIsTerminal()) return std::string(value);
  std::string text;
  while (!value.empty()) {
    const std::size_t end = std::min(value.find('\n'), value.size());
    text += printable(trimRight(value.substr(0, end)));
    if (end < value.size()) text += "\n ";
    value = trimLeft(value.substr(std::min(end + 1, value.size())));
  }
  return text;
}

void writeField(const MimeHeader& header, int index, const HeadersOptions& options) {
  std::string head;
  if (options.names.empty()) head = header.fieldName(index);
  if (!head.empty()) head += ": ";
  if (options.raw)
    std::cout << printable(head) << rawText(header.rawValue(index)) << '\n';
  else
    writeLine(std::cout, standardOutputColumns(), "", "    ", head + header.decodedValue(index));
}

/// Reads the fields from the parse tree, which has them as received, before loading normalizes the message.
Exit headers(const HeadersOptions& options) {
  DataBuffer bytes;
  if (!readFile(options.file, bytes)) return Exit::unreadable;
  MimeMessage2 message;
  LogNull log;
  message.loadText(bytes.view(), log);
  const MimeHeader& header = message.header();
  bool found = options.names.empty();
  for (int i = 0; i < header.getNumFields(); ++i) {
    if (!options.wants(header.fieldName(i))) continue;
    found = true;
    writeField(header, i, options);
  }
  const Exit result =
      worse(found ? Exit::fine : Exit::negative, reportLimits(options.file, message.limits()));
  return worse(result, finishStandardOutput());
}

}  // namespace

void addHeaders(CLI::App& app, Action& action) {
  auto options = std::make_shared<HeadersOptions>();
  CLI::App* verb = app.add_subcommand("headers", "Print header fields, decoded");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addTexts(*verb, "NAME", options->names, "Only the values of these fields; status 1 when none is found");
  verb->add_flag("--raw", options->raw, "Raw values, folded and encoded");
  verb->footer("Example:\n  mailtree headers mail.eml\n  mailtree headers mail.eml subject date");
  verb->callback([options, &action] { action = [options] { return headers(*options); }; });
}

}  // namespace mailtree::cli
