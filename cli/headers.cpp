// cli/headers.cpp - mailtree headers: prints header fields, decoded or raw.
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/errors.h"
#include "cli/support/terminal.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree::cli {
namespace {

struct HeadersOptions {
  SourceArguments sources;
  StreamSettings stream;
  std::vector<std::string> names;  ///< Of the fields wanted; empty: all.
  bool raw = false;

  bool wants(std::string_view name) const {
    return names.empty() || std::any_of(names.begin(), names.end(),
                                        [name](const auto& wanted) { return equalsNoCase(wanted, name); });
  }
};

/// The raw value: byte for byte in a file; on a terminal only harmless characters, each line indented alike.
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
    standardOutput() << printable(head) << rawText(header.rawValue(index)) << '\n';
  else
    writeLine(standardOutput(), standardOutputColumns(), "", "    ", head + header.decodedValue(index));
}

/// Reads the fields from the parse tree, which has them as received, before loading normalizes the message.
Exit headers(Input& input, const HeadersOptions& options) {
  MimeMessage2 message;
  LogNull log;
  message.loadText(input.bytes(), log);
  input.isDamaged = message.repairs().has(Repair::headerSyntax) || !message.limits().isEmpty();
  const MimeHeader& header = message.header();
  bool found = options.names.empty();
  for (int i = 0; i < header.getNumFields(); ++i) {
    if (!options.wants(header.fieldName(i))) continue;
    found = true;
    writeField(header, i, options);
  }
  return worse(found ? Exit::fine : Exit::negative, reportLimits(input.name, message.limits()));
}

}  // namespace

void addHeaders(Verb app, Action& action) {
  auto options = std::make_shared<HeadersOptions>();
  auto further = std::make_shared<std::vector<std::string>>();
  const Verb verb = app.addVerb("headers", "Print header fields, decoded");
  const Option file =
      verb.addTexts("FILE", options->sources.paths,
                    "Message, mailbox, folder or archive; box.mbox#12 is one message; - is standard "
                    "input");
  file.required().single();
  verb.addTexts(
      "NAME", *further,
      "Only the values of these fields; status 1 when none is found. With --field: further messages");
  verb.addRepeated("--field", options->names,
                   "Only the values of the fields of this name, in each of several messages");
  addSourceLists(verb, file, options->sources);
  verb.addFlag("--raw", options->raw, "Raw values, folded and encoded");
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "Example:\n  mailtree headers mail.eml\n  mailtree headers mail.eml subject date\n"
      "  mailtree headers --field subject inbox drafts/*.eml");
  verb.whenChosen([options, further, &action] {
    std::vector<std::string>& names = options->names.empty() ? options->names : options->sources.paths;
    names.insert(names.end(), further->begin(), further->end());
    action = [options] {
      return forEachMessage(options->sources, {.headersOnly = true, .stream = options->stream},
                            [&options](Input& input) { return headers(input, *options); });
    };
  });
}

}  // namespace mailtree::cli
