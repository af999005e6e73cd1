// cli/list.cpp - mailtree list: one line for each message of mailboxes, or how many there are of what.
#include <memory>

#include "cli/commands.h"
#include "cli/message/streaming.h"
#include "cli/support/arguments.h"
#include "cli/views/listing.h"

namespace mailtree::cli {
namespace {

struct ListOptions {
  SourceArguments sources;
  StreamSettings stream;
  ListSettings list;
};

Exit list(const ListOptions& options) {
  Listing listing(options.list, hasSeveral(options.sources));
  if (const Exit wrong = listing.check(); wrong != Exit::fine) return wrong;
  const auto make = [&listing, lazy = LazyMessage()](SourceMessage& message) mutable {
    lazy.assign(message);
    return listing.itemOf(lazy);
  };
  Streaming stream(options.sources, options.stream);
  Exit printed = Exit::fine;
  const Exit read = stream.run(
      make, [&](SourceMessage&, Listing::Item& item) { return listing.take(item); },
      [&] { printed = listing.finish(); });
  return worse(read, printed);
}

}  // namespace

void addList(Verb app, Action& action) {
  auto options = std::make_shared<ListOptions>();
  const Verb verb = app.addVerb("list", "List the messages of mailboxes and folders, one line each");
  addSources(verb, options->sources);
  addListOptions(verb, options->list);
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "A line has the number of the message, its date in UTC, letters, its size, sender and subject. The "
      "letters: " +
      listLetters() +
      ".\n\n"
      "Example:\n  mailtree list inbox.mbox\n  mailtree list --sort -date Maildir\n"
      "  mailtree list --threads inbox.mbox archive.mbox.gz\n  mailtree list --summary sender Maildir | "
      "head\n"
      "  mailtree list --json --fields file,date,subject mails | jq .subject");
  verb.whenChosen([options, &action] { action = [options] { return list(*options); }; });
}

}  // namespace mailtree::cli
