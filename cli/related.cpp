// cli/related.cpp - mailtree related: lists the parts of the multipart/related other than the HTML.
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/terminal.h"
#include "cli/support/terminal_table.h"
#include "cli/views/json_view.h"

namespace mailtree::cli {
namespace {

struct RelatedOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool json = false;
};

std::string orDash(std::string_view text) { return text.empty() ? "-" : cellOrQuoted(text); }

/// The HTML's reference to an item: its Content-ID, else its Content-Location.
std::string referenceOf(const Email2& item) {
  const std::string_view id = trim(item.m_contentId.view());
  return orDash(id.empty() ? decodedField(item, "Content-Location").value_or("") : id);
}

void writeTable(const Outline& outline, const std::vector<int>& items) {
  Table table({{"#", true}, {"Part", true}, {"Name"}, {"Type"}, {"Size", true}, {"Content-ID or location"}});
  for (std::size_t number = 0; number < items.size(); ++number) {
    const PartRow& row = outline.row(items[number]);
    table.add({std::to_string(number), std::to_string(items[number]), orDash(row.filename),
               wordOrQuoted(row.contentType), humanSize(row.node->m_body.getSize()), referenceOf(*row.node)});
  }
  table.write(standardOutput());
}

Exit related(Input& input, const RelatedOptions& options) {
  std::optional<Message> message = loadMessage(input);
  if (!message) return Exit::unreadable;
  const Outline outline = outlineOf(*message->root);
  const std::vector<int> items = relatedItemsOf(*message->root, outline);
  if (options.json)
    standardOutput() << relatedJsonOf(input.name, *message, outline, items) << '\n';
  else if (!items.empty())
    writeTable(outline, items);
  return worse(items.empty() ? Exit::negative : Exit::fine, reportLimits(input.name, message->limits()));
}

}  // namespace

void addRelated(Verb app, Action& action) {
  auto options = std::make_shared<RelatedOptions>();
  const Verb verb = app.addVerb(
      "related", "List the parts of the multipart/related other than the HTML; status 1 when there are none");
  addSources(verb, options->sources);
  verb.addFlag("--json", options->json, "One JSON object on one line");
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "\"#\" is the number for edit --drop-related, \"Part\" the number in show and for extract --part.\n"
      "Every part of the multipart/related is numbered, except the first part (the HTML).\n\n"
      "Example:\n  mailtree related samples/newsletter.eml\n"
      "  mailtree related --json mail.eml | jq '.related[].content_id'");
  verb.whenChosen([options, &action] {
    action = [options] {
      return forEachMessage(options->sources,
                            {.hasTitles = !options->json, .needsAll = false, .stream = options->stream},
                            [&options](Input& input) { return related(input, *options); });
    };
  });
}

}  // namespace mailtree::cli
