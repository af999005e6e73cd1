// cli/tree.cpp - mailtree tree: shows the structure of a message.
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

struct TreeOptions {
  SourceArguments sources;
  StreamSettings stream;
};

Exit tree(Input& input) {
  std::optional<Message> message = loadMessage(input);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(input.name, message->limits());
  LogMemory log;
  StringBuffer scratch;
  message->root->logEmailStructure(scratch, log);
  const std::string text = log.text();
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = rest.find('\n'), begin = rest.find_first_not_of(' ');
    const std::string indent(begin, ' ');
    writeLine(standardOutput(), standardOutputColumns(), indent, indent + "    ",
              rest.substr(begin, end - begin));
    rest.remove_prefix(std::min(end, rest.size() - 1) + 1);
  }
  return result;
}

}  // namespace

void addTree(Verb app, Action& action) {
  auto options = std::make_shared<TreeOptions>();
  const Verb verb =
      app.addVerb("tree", "Show the structure of a message: type, encoding, names and size of each part");
  addSources(verb, options->sources);
  addStreamOptions(verb, options->stream);
  verb.setFooter("Example:\n  mailtree tree samples/newsletter.eml");
  verb.whenChosen([options, &action] {
    action = [options] { return forEachMessage(options->sources, {.stream = options->stream}, tree); };
  });
}

}  // namespace mailtree::cli
