// cli/reply.cpp - mailtree reply and forward: answers or forwards a received message.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/writing/bodies.h"
#include "cli/writing/fields.h"
#include "cli/writing/reply_text.h"
#include "mailtree/message/outline.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

struct ReplyOptions {
  std::string file;
  std::optional<std::string> from;
  std::vector<std::string> to, cc;
  BodyOptions bodies;
  std::string output;
};

using Conversion = void (Email2::*)(LogBase&);

/// Everything from the command line, checked and read.
struct Reply {
  std::vector<HeaderField> fields;
  Bodies bodies;
};

Exit read(const ReplyOptions& options, Reply& reply) {
  FieldReader reader(reply.fields);
  reader.take("--from", "From", options.from);
  reader.take("--to", "To", options.to);
  reader.take("--cc", "Cc", options.cc);
  if (reader.result() != Exit::fine) return reader.result();
  if ((options.file == "-") + options.bodies.countOfStandardInput() > 1)
    return usageError("-", "standard input can be only one of the files");
  return readBodies(options.bodies, reply.bodies);
}

/// Receipt requests of the original sender must not be repeated.
constexpr const char* kReceiptFields[] = {"Disposition-Notification-To", "Return-Receipt-To"};

/// Fields added in delivery, besides those that a conversion removes: resenders, recipients, and the results
/// of server checks.
constexpr const char* kDeliveryFields[] = {
    "Return-Path",   "Delivered-To", "Envelope-To",        "Envelope-From",          "Apparently-To",
    "Delivery-Date", "Received-SPF", "Original-Recipient", "Authentication-Results", "DomainKey-Signature"};
constexpr const char* kDeliveryPrefixes[] = {"Resent-", "ARC-"};

bool hasTextToQuote(Email2& email) {
  const DataBuffer* const first = email.getEffectiveBodyObject3(email);
  return std::ranges::any_of(outlineOf(email).rows, [first](const PartRow& row) {
    return row.isBody || (row.isText() && &row.node->m_body == first && !row.node->isNotAlternativeBody());
  });
}

/// Wraps a message without text to quote in a multipart/mixed, so that its content stays complete and visible
/// beside the text of the reply.
void wrapUnlessText(Email2& email, LogBase& log) {
  labelUntypedBody(email, log);
  moveIntoMixed(email, log);
  if (email.isMultipart() && !email.isMultipartMixed() && !hasTextToQuote(email))
    email.convertToMultipartX("multipart/mixed", log);
}

/// X-Priority is the last field that a conversion sets; without it the conversion stopped early.
bool isConverted(const Email2& email, LogBase& log) { return email.hasHeaderField("X-Priority", log); }

Exit complete(const ReplyOptions& options, const Reply& reply, const QuotedTexts& quoted, Email2& email) {
  LogMemory log;
  for (const char* const name : kReceiptFields) email.removeHeaderField(name);
  for (const char* const name : kDeliveryFields) email.removeHeaderField(name);
  for (const char* const prefix : kDeliveryPrefixes) email.m_header.removeHeadersBeginningWith(prefix);
  if (reply.bodies.plain && !quoted.prependText(*reply.bodies.plain, log)) {
    reportError(options.file, lastError(log, "the message has no text to put --text before"));
    return Exit::negative;
  }
  addFields(email, reply.fields, log);
  return Exit::fine;
}

Exit convert(const ReplyOptions& options, Conversion conversion) {
  Reply reply;
  if (const Exit result = read(options, reply); result != Exit::fine) return result;
  std::optional<Message> message = loadMessageToWrite(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());

  Email2& email = *message->root;
  if (isSigned(email))
    reportError(options.file, "warning: the message is signed, and its signature may no longer verify");
  LogNull log;
  wrapUnlessText(email, log);
  const QuotedTexts quoted(email);
  (email.*conversion)(log);
  if (!isConverted(email, log)) {
    reportError(options.file, "the message has no text to quote");
    return Exit::negative;
  }
  if (const Exit result = complete(options, reply, quoted, email); result != Exit::fine) return result;
  return worse(limits, writeMessage(email, options.output));
}

void addVerb(CLI::App& app, Action& action, const char* name, const char* description, const char* footer,
             Conversion conversion) {
  auto options = std::make_shared<ReplyOptions>();
  CLI::App* verb = app.add_subcommand(name, description);
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addText(*verb, "--from", options->from, "Sender, such as 'Anna Berg <anna@berg.example>'");
  addRepeated(*verb, "--to", options->to, "Recipient, or a comma-separated list");
  addRepeated(*verb, "--cc", options->cc, "Recipients of copies");
  addTextOptions(*verb, options->bodies);
  addOutput(*verb, options->output);
  verb->footer(footer);
  verb->callback([options, conversion, &action] {
    action = [options, conversion] { return convert(*options, conversion); };
  });
}

}  // namespace

void addReply(CLI::App& app, Action& action) {
  addVerb(app, action, "reply", "Reply to a message, quoting it",
          "The reply goes to the sender of the message and to --to. HTML, inline images and attachments\n"
          "are kept. The text goes before the quoted text, in plain text and in HTML.\n"
          "Example:\n  mailtree reply mail.eml --from jo@see.example --text 'See you there.' -o reply.eml",
          &Email2::convertToReply);
}

void addForward(CLI::App& app, Action& action) {
  addVerb(
      app, action, "forward", "Forward a message, quoting it",
      "HTML, inline images and attachments are kept. The text goes before the quoted text, in\n"
      "plain text and in HTML.\n"
      "Example:\n  mailtree forward mail.eml --from jo@see.example --to anna@berg.example --text 'For you.' "
      "-o new.eml",
      &Email2::convertToForward);
}

}  // namespace mailtree::cli
