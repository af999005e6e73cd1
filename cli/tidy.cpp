// cli/tidy.cpp - mailtree tidy: cleans up a message.
#include <memory>

#include "cli/commands.h"
#include "cli/message/output.h"
#include "cli/message/store_output.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/html/HtmlPage.h"

namespace mailtree::cli {
namespace {

struct TidyOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool unspam = false, stripPaths = false, safeEncodings = false;
  Destination output;
  std::string store;
};

/// Cleans the displayed HTML in place. Setting a new HTML body would add a second one when the existing one
/// is not in a multipart/alternative.
void cleanHtml(Email2& email, LogBase& log) {
  Email2* const part = email.getHtmlAlternative();
  if (!part || part->getNumParts() > 0 || !isConvertibleText(part->traits())) return;
  _svHtml html;
  html.setHtmlN(part->m_body.view().data(), part->m_body.getSize());
  html.unSpam(log);
  StringBuffer cleaned, type(part->m_contentType.m_type.view());
  html.getHtml(cleaned);
  DataBuffer body;
  if (cleaned.view() == part->m_body.view() || !body.append(cleaned)) return;
  Email2::replaceEmailBody(part, body, /*isText=*/true, email.emailCodePage(), type, log);
}

Exit tidy(Input& input, const TidyOptions& options) {
  std::optional<Message> message = loadMessageToWrite(input);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(input.name, message->limits());

  Email2& email = *message->root;
  if (isSigned(email))
    reportError(input.name, "warning: the message is signed, and its signature may no longer verify");
  LogNull log;
  if (options.unspam) cleanHtml(email, log);
  if (options.stripPaths) email.removeAttachmentPaths(log);
  if (options.safeEncodings) email.safeguardBodies(log);
  return worse(limits, writeMessage(email, input, options.store.empty() ? &options.output : nullptr));
}

Exit tidyAll(const TidyOptions& options) {
  if (!options.unspam && !options.stripPaths && !options.safeEncodings) {
    reportError("requires --unspam, --strip-paths or --safe-encodings");
    return Exit::usage;
  }
  return rewriteEachMessage(options.sources, options.store, "tidy without --out", options.stream,
                            [&](Input& input) { return tidy(input, options); });
}

}  // namespace

void addTidy(Verb app, Action& action) {
  auto options = std::make_shared<TidyOptions>();
  const Verb verb = app.addVerb("tidy", "Clean up a message");
  addSources(verb, options->sources);
  verb.addFlag("--unspam", options->unspam, "Remove from the HTML what is meant to defeat spam filters");
  verb.addFlag("--strip-paths", options->stripPaths, "Strip directories from the names of attachments");
  verb.addFlag("--safe-encodings", options->safeEncodings,
               "Encode 8-bit text and parts labelled binary for any server");
  addOutput(verb, options->output);
  addStoreOutput(verb, "--out", options->store, kStoreDescription).excludes("--output");
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "At least one of --unspam, --strip-paths and --safe-encodings is required. --unspam does not make HTML "
      "safe to display.\n"
      "Example:\n  mailtree tidy --strip-paths --safe-encodings mail.eml -o clean.eml\n"
      "  mailtree tidy --safe-encodings box.mbox --out maildir:Clean");
  verb.whenChosen([options, &action] { action = [options] { return tidyAll(*options); }; });
}

}  // namespace mailtree::cli
