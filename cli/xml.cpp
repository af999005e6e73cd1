// cli/xml.cpp - mailtree xml: a message as an XML document.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/message/internal_fields.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

struct XmlOptions {
  std::string file;
  std::string output;
  bool indent = false;
};

Exit xml(const XmlOptions& options) {
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, message->limits());
  walk(*message->root, [](Email2& node) { node.m_header.removeHeadersBeginningWith(kOmittedPrefix); });
  LogMemory log;
  StringBuffer document;
  if (!message->root->getEmailXml(/*compact=*/!options.indent, document, log) || document.isEmpty()) {
    reportError(options.file, lastError(log, "cannot be converted to XML"));
    return Exit::unreadable;
  }
  if (!options.indent) document.appendChar('\n');
  TextFile file(options.output);
  const bool written = file.write(document.text()) && file.commit();
  return worse(result, written ? Exit::fine : Exit::unreadable);
}

}  // namespace

void addXml(CLI::App& app, Action& action) {
  auto options = std::make_shared<XmlOptions>();
  CLI::App* verb = app.add_subcommand("xml", "Convert a message to XML: header fields, parts, bodies");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addOutput(*verb, options->output);
  verb->add_flag("--indent", options->indent, "One element per line, indented (default: one line)");
  verb->footer("Example:\n  mailtree xml --indent mail.eml | xmllint --xpath '//subject/text()' -");
  verb->callback([options, &action] { action = [options] { return xml(*options); }; });
}

}  // namespace mailtree::cli
