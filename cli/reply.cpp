// cli/reply.cpp - mailtree reply and forward: a received message answered or passed on.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/outline.h"
#include "cli/message/output.h"
#include "cli/message/structure.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/writing/bodies.h"
#include "cli/writing/fields.h"
#include "cli/writing/quoted.h"

namespace mailtree::cli {
namespace {

struct AnswerOptions {
  std::string file;
  std::optional<std::string> from;
  std::vector<std::string> to, cc;
  BodyOptions bodies;
  std::string output;
};

using Conversion = void (Email2::*)(LogBase&);

/// Everything the command line names, checked and read.
struct Answer {
  std::vector<HeaderField> fields;
  Bodies bodies;
};

Exit read(const AnswerOptions& options, Answer& answer) {
  FieldReader reader(answer.fields);
  reader.take("--from", "From", options.from);
  reader.take("--to", "To", options.to);
  reader.take("--cc", "Cc", options.cc);
  if (reader.result() != Exit::fine) return reader.result();
  if ((options.file == "-") + options.bodies.countOfStandardInput() > 1)
    return usageError("-", "standard input can be only one of the files");
  return readBodies(options.bodies, answer.bodies);
}

/// Asking for receipts is for who sends, not for who sent.
constexpr const char* kReceiptFields[] = {"Disposition-Notification-To", "Return-Receipt-To"};

/// What delivery wrote, beside the fields that a conversion removes: who passed the message on, to whom it came, and
/// what servers found out about it.
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

/// What has no text of its own becomes a part beside the one that the answer begins with, so that it stays whole
/// and in sight.
void makePlaceForText(Email2& email, LogBase& log) {
  labelUntypedBody(email, log);
  moveIntoMixed(email, log);
  if (email.isMultipart() && !email.isMultipartMixed() && !hasTextToQuote(email))
    email.convertToMultipartX("multipart/mixed", log);
}

/// A conversion that stopped before its end has not set the last of the fields that it sets.
bool isConverted(const Email2& email, LogBase& log) { return email.hasHeaderField("X-Priority", log); }

Exit complete(const AnswerOptions& options, const Answer& answer, const QuotedTexts& quoted, Email2& email) {
  LogMemory log;
  for (const char* const name : kReceiptFields) email.removeHeaderField(name);
  for (const char* const name : kDeliveryFields) email.removeHeaderField(name);
  for (const char* const prefix : kDeliveryPrefixes) email.m_header.removeHeadersBeginningWith(prefix);
  if (answer.bodies.plain && !quoted.prependText(*answer.bodies.plain, log)) {
    reportError(options.file, lastError(log, "the message has no text to put another one in front of"));
    return Exit::negative;
  }
  addFields(email, answer.fields, log);
  return Exit::fine;
}

Exit convert(const AnswerOptions& options, Conversion conversion) {
  Answer answer;
  if (const Exit result = read(options, answer); result != Exit::fine) return result;
  std::optional<Message> message = loadMessageToWrite(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());

  Email2& email = *message->root;
  if (isSigned(email))
    reportError(options.file, "warning: the message is signed, and its signature may no longer fit");
  LogNull log;
  makePlaceForText(email, log);
  const QuotedTexts quoted(email);
  (email.*conversion)(log);
  if (!isConverted(email, log)) {
    reportError(options.file, "the message has no text that could be quoted");
    return Exit::negative;
  }
  if (const Exit result = complete(options, answer, quoted, email); result != Exit::fine) return result;
  return worse(limits, writeMessage(email, options.output));
}

void addVerb(CLI::App& app, Action& action, const char* name, const char* description, const char* footer,
             Conversion conversion) {
  auto options = std::make_shared<AnswerOptions>();
  CLI::App* verb = app.add_subcommand(name, description);
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addText(*verb, "--from", options->from, "Sender, such as 'Anna Berg <anna@berg.example>'");
  addRepeated(*verb, "--to", options->to, "Recipients, one or a list with commas");
  addRepeated(*verb, "--cc", options->cc, "Recipients of a copy");
  addTextOptions(*verb, options->bodies);
  addOutput(*verb, options->output);
  verb->footer(footer);
  verb->callback([options, conversion, &action] {
    action = [options, conversion] { return convert(*options, conversion); };
  });
}

}  // namespace

void addReply(CLI::App& app, Action& action) {
  addVerb(
      app, action, "reply", "Answer a message, quoting it",
      "The answer goes to the sender of the message; --to adds to that. HTML, inline images and attachments\n"
      "stay. The text is put in front of what is quoted, in the plain text and in the HTML.\n"
      "Example:\n  mailtree reply mail.eml --from jo@see.example --text 'See you there.' -o answer.eml",
      &Email2::convertToReply);
}

void addForward(CLI::App& app, Action& action) {
  addVerb(
      app, action, "forward", "Pass a message on, quoting it",
      "HTML, inline images and attachments stay. The text is put in front of what is quoted, in the plain "
      "text\n"
      "and in the HTML.\n"
      "Example:\n  mailtree forward mail.eml --from jo@see.example --to anna@berg.example --text 'For you.' "
      "-o new.eml",
      &Email2::convertToForward);
}

}  // namespace mailtree::cli
