// cli/show.cpp - mailtree show: shows a message to people, or as JSON.
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/views/jmap_fields.h"
#include "cli/views/jmap_view.h"
#include "cli/views/json_view.h"
#include "cli/views/text_view.h"

namespace mailtree::cli {
namespace {

struct ShowOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool json = false;
  bool jmap = false;
  std::vector<std::string> properties;
  bool headers = false;
  bool body = false;
  bool verbose = false;
  bool color = false;
  bool noColor = false;
  KeyOptions keys;
};

ColorChoice choiceOf(const ShowOptions& options) {
  if (options.noColor) return ColorChoice::never;
  return options.color ? ColorChoice::always : ColorChoice::automatic;
}

/// An Email object does not name its file unless there is a doubt.
bool isInDoubt(const Input& input) { return input.isOneOfSeveral || input.name != input.found; }

Exit showOne(Input& input, const ShowOptions& options, const Keys& keys, const Style& style) {
  std::optional<mailtree::Message> message = openMessage(input, keys.all);
  if (!message) return Exit::unreadable;
  if (options.jmap)
    standardOutput() << jmapOf(*message,
                               {isInDoubt(input) ? input.name : "", options.headers, options.properties})
                     << '\n';
  else if (options.json)
    standardOutput() << jsonOf(input.name, *message, {options.headers, options.body}) << '\n';
  else
    writeText(standardOutput(), *message, {style, options.headers, options.verbose});
  return reportLimits(input.name, limitsIn(*message));
}

Exit show(const ShowOptions& options) {
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  const Style style = styleOfStandardOutput(choiceOf(options));
  return forEachMessage(options.sources,
                        {.hasTitles = !options.json && !options.jmap,
                         .style = style,
                         .stream = streamWith(options.keys, options.stream)},
                        [&](Input& input) { return showOne(input, options, keys, style); });
}

}  // namespace

void addShow(Verb app, Action& action) {
  auto options = std::make_shared<ShowOptions>();
  const Verb verb =
      app.addVerb("show", "Show messages: main header fields, tree of parts, first lines of text");
  addSources(verb, options->sources);
  const Option json = verb.addFlag("--json", options->json, "One JSON object per message, one line each");
  const Option jmap =
      verb.addFlag("--jmap", options->jmap, "The same as Email objects of JMAP (RFC 8621)").excludes(json);
  verb.addRepeated("--header", options->properties,
                   "With --jmap: add a header field in a form, such as header:List-Post:asURLs")
      .check(problemOfJmapProperty)
      .needs(jmap);
  verb.addFlag("--headers", options->headers,
               "Show every header field, decoded; with --jmap those of the parts too");
  verb.addFlag("--body", options->body, "With --json: add the text and the HTML that a reader sees")
      .needs(json);
  verb.addFlag("-v,--verbose", options->verbose, "Show why parts are attachments, and what was repaired");
  const Option color =
      verb.addFlag("--color", options->color, "Color even when the output is not a terminal");
  verb.addFlag("--no-color", options->noColor, "No color (as with NO_COLOR in the environment)")
      .excludes(color);
  addReadingKeyOptions(verb, options->keys);
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "docs/json-schema.json describes the JSON; --jmap leaves out what only a server knows.\n\n"
      "Example:\n  mailtree show samples/newsletter.eml\n  mailtree show --json mails | jq .subject\n"
      "  mailtree show --jmap --header header:List-Unsubscribe:asURLs mail.eml | jq .bodyValues\n"
      "  mailtree show --p12 jo.p12 --trust ca.pem secret.eml");
  verb.whenChosen([options, &action] { action = [options] { return show(*options); }; });
}

}  // namespace mailtree::cli
