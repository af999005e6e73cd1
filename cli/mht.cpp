// cli/mht.cpp - mailtree mht: converts a message to a web archive (RFC 2557).
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/message/web_archive.h"

namespace mailtree::cli {
namespace {

struct MhtOptions {
  std::string file;
  Destination output;
  KeyOptions keys;
};

Exit mht(const MhtOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  std::optional<mailtree::Message> message = openMessage(options.file, keys.all);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, limitsIn(*message));
  const Readers readers = readersOf(*message);
  const EmailPtr archive = webArchiveOf(message->email2());
  if (archive) return worse(result, writeMessage(*archive, options.output, {.readers = readers}));
  reportError(options.file, "no text");
  return worse(result, Exit::negative);
}

}  // namespace

void addMht(Verb app, Action& action) {
  auto options = std::make_shared<MhtOptions>();
  const Verb verb = app.addVerb("mht",
                                "Convert a message to a web archive: what a reader sees, with its "
                                "images, without attachments; status 1 when there is no text");
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  addOutput(verb, options->output);
  addReadingKeyOptions(verb, options->keys);
  verb.setFooter("Example:\n  mailtree mht samples/newsletter.eml -o page.mht && chromium page.mht");
  verb.whenChosen([options, &action] { action = [options] { return mht(*options); }; });
}

}  // namespace mailtree::cli
