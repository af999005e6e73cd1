// cli/tree.cpp - mailtree tree: shows the structure of a message.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

Exit tree(const std::string& file) {
  std::optional<Message> message = loadMessage(file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(file, message->limits());
  LogMemory log;
  StringBuffer scratch;
  message->root->logEmailStructure(scratch, log);
  const std::string text = log.text();
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = rest.find('\n'), begin = rest.find_first_not_of(' ');
    const std::string indent(begin, ' ');
    writeLine(std::cout, standardOutputColumns(), indent, indent + "    ", rest.substr(begin, end - begin));
    rest.remove_prefix(std::min(end, rest.size() - 1) + 1);
  }
  return worse(result, finishStandardOutput());
}

}  // namespace

void addTree(CLI::App& app, Action& action) {
  auto file = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand(
      "tree", "Show the structure of a message: type, encoding, names and size of each part");
  addText(*verb, "FILE", *file, "Message; - is standard input")->required();
  verb->footer("Example:\n  mailtree tree samples/newsletter.eml");
  verb->callback([file, &action] { action = [file] { return tree(*file); }; });
}

}  // namespace mailtree::cli
