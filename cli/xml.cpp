// cli/xml.cpp - mailtree xml: a message as an XML document.
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/message/internal_fields.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

struct XmlOptions {
  SourceArguments sources;
  StreamSettings stream;
  Destination output;
  bool indent = false;
};

Exit xml(Input& input, const XmlOptions& options) {
  std::optional<Message> message = loadMessage(input);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(input.name, message->limits());
  walk(*message->root, [](Email2& node) { node.m_header.removeHeadersBeginningWith(kOmittedPrefix); });
  LogMemory log;
  StringBuffer document;
  if (!message->root->getEmailXml(/*compact=*/!options.indent, document, log) || document.isEmpty()) {
    reportError(input.name, lastError(log, "cannot be converted to XML"));
    return Exit::unreadable;
  }
  if (!options.indent) document.appendChar('\n');
  TextFile file(options.output);
  const bool written = file.write(document.text()) && file.commit();
  return worse(result, written ? Exit::fine : Exit::unreadable);
}

}  // namespace

void addXml(Verb app, Action& action) {
  auto options = std::make_shared<XmlOptions>();
  const Verb verb = app.addVerb("xml", "Convert a message to XML: header fields, parts, bodies");
  addSources(verb, options->sources);
  addOutput(verb, options->output);
  verb.addFlag("--indent", options->indent, "One element per line, indented (default: one line)");
  addStreamOptions(verb, options->stream);
  verb.setFooter("Example:\n  mailtree xml --indent mail.eml | xmllint --xpath '//subject/text()' -");
  verb.whenChosen([options, &action] {
    action = [options] {
      const char* const single = isStandardOutput(options->output.path) ? nullptr : "--output";
      return forEachMessage(options->sources, {.single = single, .stream = options->stream},
                            [&options](Input& input) { return xml(input, *options); });
    };
  });
}

}  // namespace mailtree::cli
