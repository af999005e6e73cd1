// cli/reply.cpp - mailtree reply, forward and resend: new messages from a received one.
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/writing/bodies.h"
#include "cli/writing/fields.h"

namespace mailtree::cli {
namespace {

struct AnswerOptions {
  std::string file;
  std::optional<std::string> from;
  std::vector<std::string> to, cc, bcc, own;
  BodyOptions bodies;
  std::string quote = "lines";
  bool all = false, list = false, attachments = false, automatic = false;
  bool asAttachment = false;
  bool keepBcc = false;
  bool inClear = false;
  KeyOptions keys;
  Destination output;
};

/// Everything from the command line, checked and read.
struct Answer {
  Address from;
  std::vector<Address> to, cc, bcc, own;
  std::string text;
  Keys keys;
};

constexpr std::pair<const char*, Quote> kQuotes[] = {
    {"lines", Quote::lines}, {"block", Quote::block}, {"none", Quote::none}};

Quote quoteNamed(std::string_view name) {
  for (const auto& [known, quote] : kQuotes)
    if (name == known) return quote;
  return Quote::lines;
}

std::vector<Address> addressesIn(const std::vector<std::string>& lists) {
  std::vector<Address> addresses;
  for (const std::string& list : lists)
    for (Address& address : Address::parseList(list)) addresses.push_back(std::move(address));
  return addresses;
}

Exit readAddresses(const AnswerOptions& options, Answer& answer) {
  std::vector<HeaderField> checked;
  FieldReader reader(checked);
  reader.take("--from", "From", options.from);
  reader.take("--to", "To", options.to);
  reader.take("--cc", "Cc", options.cc);
  reader.take("--bcc", "Bcc", options.bcc);
  reader.take("--own", "To", options.own);
  if (reader.result() != Exit::fine) return reader.result();
  if (options.from) answer.from = Address::parse(*options.from).value_or(Address());
  answer.to = addressesIn(options.to);
  answer.cc = addressesIn(options.cc);
  answer.bcc = addressesIn(options.bcc);
  answer.own = addressesIn(options.own);
  return Exit::fine;
}

Exit read(const AnswerOptions& options, Answer& answer) {
  if (const Exit result = readAddresses(options, answer); result != Exit::fine) return result;
  if ((options.file == "-") + options.bodies.countOfStandardInput() > 1)
    return usageError("-", "standard input can be only one of the files");
  Bodies bodies;
  if (const Exit result = readBodies(options.bodies, bodies); result != Exit::fine) return result;
  answer.text = bodies.plain.value_or(std::string());
  return readKeys(options.keys, answer.keys);
}

using Make = Result<mailtree::Message> (*)(const mailtree::Message&, const AnswerOptions&, const Answer&);

Result<mailtree::Message> makeReply(const mailtree::Message& message, const AnswerOptions& options,
                                    const Answer& answer) {
  return message.reply({.from = answer.from,
                        .all = options.all,
                        .list = options.list,
                        .own = answer.own,
                        .text = answer.text,
                        .quote = quoteNamed(options.quote),
                        .attachments = options.attachments,
                        .automatic = options.automatic,
                        .to = answer.to,
                        .cc = answer.cc});
}

Result<mailtree::Message> makeForward(const mailtree::Message& message, const AnswerOptions& options,
                                      const Answer& answer) {
  return message.forward({.from = answer.from,
                          .to = answer.to,
                          .cc = answer.cc,
                          .text = answer.text,
                          .asAttachment = options.asAttachment});
}

Result<mailtree::Message> makeResent(const mailtree::Message& message, const AnswerOptions&,
                                     const Answer& answer) {
  return message.resend({.from = answer.from, .to = answer.to, .cc = answer.cc, .bcc = answer.bcc});
}

/// A hint at what the user can do about an error.
const char* adviceFor(const Error& error, Make make) {
  switch (error.code) {
    case ErrorCode::noRecipient: return "; use --to";
    case ErrorCode::inClear: return "; use --in-clear to allow that";
    case ErrorCode::encrypted: return make == makeForward ? "; use --as-attachment" : "; use --quote none";
    default: return "";
  }
}

Exit refuse(const AnswerOptions& options, const Error& error, Make make) {
  reportError(options.file, error.message + adviceFor(error, make));
  return Exit::negative;
}

Exit run(const AnswerOptions& options, Make make) {
  Answer answer;
  if (const Exit result = read(options, answer); result != Exit::fine) return result;
  const std::optional<mailtree::Message> message = openMessage(options.file, answer.keys.all);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, limitsIn(*message));
  if (!options.from) {
    reportError(options.file, "the new message has no sender; use --from");
    return Exit::negative;
  }
  const Result<mailtree::Message> made = make(*message, options, answer);
  if (!made) return refuse(options, made.error(), make);
  if (made->envelope().recipients.empty())
    return refuse(options, {ErrorCode::noRecipient, "the new message has no recipient", {}}, make);
  const Result<void> checked = made->check();
  if (!checked && !options.inClear) return refuse(options, checked.error(), make);
  return worse(limits, writeMessage(*made, options.output, {.bcc = options.keepBcc, .inClear = true}));
}

/// Adds the options that reply, forward and resend have in common.
std::shared_ptr<AnswerOptions> addAnswerOptions(Verb verb, Action& action, Make make) {
  auto options = std::make_shared<AnswerOptions>();
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  verb.addText("--from", options->from, "Sender, such as 'Anna Berg <anna@berg.example>'");
  verb.addRepeated("--to", options->to, "Recipient, or a comma-separated list");
  verb.addRepeated("--cc", options->cc, "Recipients of copies");
  addOutput(verb, options->output);
  verb.whenChosen([options, make, &action] { action = [options, make] { return run(*options, make); }; });
  return options;
}

void addContentOptions(Verb verb, AnswerOptions& options) {
  addTextOptions(verb, options.bodies);
  verb.addFlag("--in-clear", options.inClear, "Allow an unencrypted answer to encrypted mail");
  addReadingKeyOptions(verb, options.keys);
}

}  // namespace

void addReply(Verb app, Action& action) {
  const Verb verb = app.addVerb("reply", "Reply to a message, quoting it");
  const auto options = addAnswerOptions(verb, action, makeReply);
  verb.addFlag("--all", options->all, "Reply to all recipients, too");
  verb.addFlag("--list", options->list, "Reply to the mailing list instead of the author");
  verb.addRepeated("--own", options->own, "Another of your own addresses; it gets no copy");
  verb.addText("--quote", options->quote, "How to quote (default: lines, with > before each)")
      .oneOf({"lines", "block", "none"});
  verb.addFlag("--attachments", options->attachments, "Include the attachments");
  verb.addFlag("--automatic", options->automatic,
               "Mark it as written by a program; refused for messages of programs and lists");
  addContentOptions(verb, *options);
  verb.setFooter(
      "The reply goes to Reply-To, else to the sender; after a message of your own, to its\n"
      "recipients. The text goes before the quoted text, in plain text and in HTML. Signed and\n"
      "encrypted messages are opened.\n"
      "Example:\n  mailtree reply mail.eml --from jo@see.example --text 'See you there.' -o reply.eml\n"
      "  mailtree reply mail.eml --from jo@see.example --all --own jo@work.example | mailtree send -");
}

void addForward(Verb app, Action& action) {
  const Verb verb = app.addVerb("forward", "Forward a message, quoting it");
  const auto options = addAnswerOptions(verb, action, makeForward);
  verb.addFlag("--as-attachment", options->asAttachment, "Attach the message whole, byte for byte");
  addContentOptions(verb, *options);
  verb.setFooter(
      "HTML, inline images and attachments are kept. The text goes before the quoted text, in plain\n"
      "text and in HTML. Signed and encrypted messages are opened.\n"
      "Example:\n  mailtree forward mail.eml --from jo@see.example --to anna@berg.example --text 'For you.' "
      "-o new.eml");
}

void addResend(Verb app, Action& action) {
  const Verb verb = app.addVerb("resend", "Send a message again, unchanged, to somebody else");
  const auto options = addAnswerOptions(verb, action, makeResent);
  verb.addRepeated("--bcc", options->bcc, "Hidden recipients, in the envelope but not in the message");
  verb.addFlag("--keep-bcc", options->keepBcc, "Write hidden recipients into the message too");
  verb.setFooter(
      "Resent-From, Resent-To and others are added before the header. The message itself is not\n"
      "changed, and its signature stays valid.\n"
      "Example:\n  mailtree resend mail.eml --from jo@see.example --to anna@berg.example | mailtree send -");
}

}  // namespace mailtree::cli
