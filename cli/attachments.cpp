// cli/attachments.cpp - mailtree attachments: lists attachments as a table or as JSON.
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/terminal.h"
#include "cli/support/terminal_table.h"
#include "cli/views/json_view.h"
#include "mailtree/message/displayed.h"

namespace mailtree::cli {
namespace {

struct AttachmentsOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool json = false;
  bool verbose = false;
  KeyOptions keys;
};

/// The last column is only for --verbose.
std::vector<Column> columnsOf(bool verbose) {
  std::vector<Column> columns = {{"#", true}, {"Part", true}, {"Name"}, {"Type"}, {"Size", true}, {"Reason"}};
  if (!verbose) columns.pop_back();
  return columns;
}

/// The file name; of an attached message the one it is extracted under.
std::string nameOf(const PartRow& row) {
  const std::string name = row.isMessage() ? givenFileName(row) : row.filename;
  return name.empty() ? "-" : cellOrQuoted(name);
}

std::vector<std::string> cellsOf(const PartRow& row, std::size_t number, int id, bool verbose) {
  std::vector<std::string> cells = {std::to_string(number), std::to_string(id), nameOf(row),
                                    wordOrQuoted(row.contentType), humanSize(row.node->m_body.getSize())};
  if (verbose) cells.push_back(printable(row.reason));
  return cells;
}

void writeTable(const Outline& outline, const std::vector<int>& files, bool verbose) {
  Table table(columnsOf(verbose));
  for (std::size_t number = 0; number < files.size(); ++number)
    table.add(cellsOf(outline.row(files[number]), number, files[number], verbose));
  table.write(standardOutput());
}

Exit attachments(Input& input, const AttachmentsOptions& options, const Keys& keys) {
  std::optional<mailtree::Message> message = openMessage(input, keys.all);
  if (!message) return Exit::unreadable;
  const LimitSet limits = limitsIn(*message);
  const Outline outline = outlineOf(message->email2());
  const std::vector<int> files = displayedIn(outline).attachments;
  if (options.json)
    standardOutput() << attachmentsJsonOf(input.name, outline, files, limits) << '\n';
  else if (!files.empty())
    writeTable(outline, files, options.verbose);
  return worse(files.empty() ? Exit::negative : Exit::fine, reportLimits(input.name, limits));
}

Exit attachmentsOfAll(const AttachmentsOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  return forEachMessage(
      options.sources,
      {.hasTitles = !options.json, .needsAll = false, .stream = streamWith(options.keys, options.stream)},
      [&](Input& input) { return attachments(input, options, keys); });
}

}  // namespace

void addAttachments(Verb app, Action& action) {
  auto options = std::make_shared<AttachmentsOptions>();
  const Verb verb =
      app.addVerb("attachments", "List the attachments of a message; status 1 when there are none");
  addSources(verb, options->sources);
  verb.addFlag("--json", options->json, "One JSON object on one line");
  verb.addFlag("-v,--verbose", options->verbose, "Show why each part counts as an attachment");
  addReadingKeyOptions(verb, options->keys);
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "\"#\" is the number for extract --attachment, \"Part\" the number in show and for extract --part.\n"
      "Everything that is not part of the text is listed, attached messages and unnamed pictures too.\n\n"
      "Example:\n  mailtree attachments samples/attachments.eml\n"
      "  mailtree attachments --json mail.eml | jq '.attachments[].filename'");
  verb.whenChosen([options, &action] { action = [options] { return attachmentsOfAll(*options); }; });
}

}  // namespace mailtree::cli
