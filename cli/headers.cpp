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
  std::vector<std::string> files;
  std::vector<std::string> names;  ///< Of the fields wanted; empty: all.
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
Exit headers(const std::string& file, const HeadersOptions& options) {
  DataBuffer bytes;
  if (!readHeader(file, bytes)) return Exit::unreadable;
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
  return worse(found ? Exit::fine : Exit::negative, reportLimits(file, message.limits()));
}

}  // namespace

void addHeaders(CLI::App& app, Action& action) {
  auto options = std::make_shared<HeadersOptions>();
  auto further = std::make_shared<std::vector<std::string>>();
  CLI::App* verb = app.add_subcommand("headers", "Print header fields, decoded");
  addTexts(*verb, "FILE", options->files, "Message, or a folder of them; - is standard input")
      ->required()
      ->expected(1)
      ->allow_extra_args(false);
  addTexts(*verb, "NAME", *further,
           "Only the values of these fields; status 1 when none is found. With --field: further messages");
  addRepeated(*verb, "--field", options->names,
              "Only the values of the fields of this name, in each of several messages");
  verb->add_flag("--raw", options->raw, "Raw values, folded and encoded");
  verb->footer(
      "Example:\n  mailtree headers mail.eml\n  mailtree headers mail.eml subject date\n"
      "  mailtree headers --field subject inbox drafts/*.eml");
  verb->callback([options, further, &action] {
    std::vector<std::string>& names = options->names.empty() ? options->names : options->files;
    names.insert(names.end(), further->begin(), further->end());
    action = [options] {
      return forEachFile(options->files, /*hasTitles=*/true,
                         [&options](const std::string& file) { return headers(file, *options); });
    };
  });
}

}  // namespace mailtree::cli
