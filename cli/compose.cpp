// cli/compose.cpp - mailtree compose: makes a new message from texts, files and addresses.
#include <memory>

#include "cli/commands.h"
#include "cli/message/output.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "cli/support/output_file.h"
#include "cli/writing/bodies.h"
#include "cli/writing/calendar.h"
#include "cli/writing/fields.h"
#include "cli/writing/files.h"
#include "cli/writing/related.h"
#include "mailtree/base/Ascii.h"

namespace mailtree::cli {
namespace {

struct ComposeOptions {
  std::string from, subject;
  std::vector<std::string> to, cc, bcc, headers;
  std::optional<std::string> replyTo, charset, date, envelope;
  BodyOptions bodies;
  InlineOptions shown;
  CalendarOptions calendar;
  AttachOptions attached;

  int countOfStandardInput() const {
    return bodies.countOfStandardInput() + calendar.countOfStandardInput() + attached.countOfStandardInput();
  }
  Destination output;
  bool keepBcc = false;
  bool noText = false;
};

/// Everything from the command line, checked and read.
struct Draft {
  std::vector<HeaderField> fields;
  Bodies bodies;
  std::vector<InlineFile> shown;
  std::optional<Calendar> calendar;
  std::vector<AttachedFile> files;
};

/// Fields that have their own option.
struct OwnOption {
  std::string_view field;
  const char* advice;
};

constexpr OwnOption kOwnOptions[] = {
    {"From", "use --from"},
    {"Subject", "use --subject"},
    {"Date", "use --date"},
    {"Reply-To", "use --reply-to"},
    {"Return-Path", "the envelope sender is the address of --from, or of Sender"},
    {"Resent-Bcc", "use --bcc for hidden recipients"},
};

const char* adviceFor(std::string_view field) {
  for (const OwnOption& row : kOwnOptions)
    if (equalsNoCase(row.field, field)) return row.advice;
  return nullptr;
}

Exit readFields(const ComposeOptions& options, std::vector<HeaderField>& fields) {
  FieldReader reader(fields);
  reader.take("--date", "Date", options.date);
  reader.take("--from", "From", options.from);
  reader.take("--to", "To", options.to);
  reader.take("--cc", "Cc", options.cc);
  reader.take("--bcc", "Bcc", options.bcc);
  reader.take("--reply-to", "Reply-To", options.replyTo);
  reader.take("--subject", "Subject", options.subject);
  for (const std::string& header : options.headers) {
    HeaderField field = fieldOfText(header);
    const std::string option = "--header '" + header + "'";
    if (const char* const advice = adviceFor(field.name)) return usageError(option, advice);
    reader.take(option, std::move(field));
  }
  return reader.result();
}

Exit checkOptions(const ComposeOptions& options) {
  if (options.countOfStandardInput() > 1)
    return usageError("-", "standard input can be only one of the files");
  const bool hasHtml = options.bodies.html || options.bodies.htmlFile;
  if (options.shown.any() && !hasHtml)
    return usageError("--inline",
                      "there is no HTML body to show the file in; add one with --html or --html-file");
  if (!options.envelope) return Exit::fine;
  if (options.envelope->empty()) return usageError("--envelope-out", "the name is empty");
  return isSameOutput(*options.envelope, options.output.path)
             ? usageError("--envelope-out", "the message is written to the same file")
             : Exit::fine;
}

/// Reads and checks everything before anything is written.
Exit read(const ComposeOptions& options, Draft& draft) {
  if (const Exit result = checkOptions(options); result != Exit::fine) return result;
  if (const Exit result = readFields(options, draft.fields); result != Exit::fine) return result;
  if (const Exit result = readBodies(options.bodies, draft.bodies); result != Exit::fine) return result;
  if (const Exit result = readInlineFiles(options.shown, draft.shown); result != Exit::fine) return result;
  if (const Exit result = checkReferences(draft.bodies.html, draft.shown); result != Exit::fine)
    return result;
  if (const Exit result = readCalendar(options.calendar, draft.calendar); result != Exit::fine) return result;
  return readAttachedFiles(options.attached, draft.files);
}

/// Adds the texts first, because they determine the charset in which the fields are encoded.
Result<void> build(const Draft& draft, mailtree::Message& message) {
  Result<void> done = putBodies(message, draft.bodies);
  if (done) done = putInlineFiles(message, draft.shown);
  if (done && draft.calendar) done = message.setCalendar(*draft.calendar);
  if (done) done = addFields(message, draft.fields);
  for (const AttachedFile& file : draft.files)
    if (done) done = attach(message, file);
  return done;
}

/// The SMTP sender and all recipients, including hidden ones, each once.
std::string envelopeText(const mailtree::Message& message) {
  const Envelope envelope = message.envelope();
  return ObjectText()
             .add("reverse_path", envelope.sender)
             .addSerialized("recipients", textsOf(envelope.recipients))
             .closed() +
         '\n';
}

Exit compose(const ComposeOptions& options) {
  mailtree::Message message;
  if (options.charset)
    if (const Result<void> chosen = message.setCharset(*options.charset); !chosen)
      return usageError("--charset", chosen.error().message);
  Draft draft;
  if (const Exit result = read(options, draft); result != Exit::fine) return result;
  if (const Result<void> built = build(draft, message); !built) {
    reportError(built.error().message);
    return Exit::unreadable;
  }
  const WriteOptions form{.bcc = options.keepBcc};
  if (!options.envelope) return writeMessage(message, options.output, form);

  // The envelope file is prepared first and committed after the message, so an envelope never exists
  // without its message.
  TextFile envelope({*options.envelope, options.output.force});
  if (!envelope.write(envelopeText(message))) return Exit::unreadable;
  const Exit result = writeMessage(message, options.output, form);
  return result == Exit::fine && !envelope.commit() ? Exit::unreadable : result;
}

void addAddressOptions(Verb verb, ComposeOptions& options) {
  verb.addText("--from", options.from, "Sender, such as 'Anna Berg <anna@berg.example>'").required();
  verb.addRepeated("--to", options.to, "Recipient, or a comma-separated list");
  verb.addRepeated("--cc", options.cc, "Recipients of copies");
  verb.addRepeated("--bcc", options.bcc, "Hidden recipients, in the envelope but not in the message");
  verb.addFlag("--keep-bcc", options.keepBcc, "Write hidden recipients into the message too");
  verb.addText("--reply-to", options.replyTo, "Address for replies");
}

}  // namespace

void addCompose(Verb app, Action& action) {
  auto options = std::make_shared<ComposeOptions>();
  const Verb verb = app.addVerb("compose", "Make a message from texts, files and addresses");
  addAddressOptions(verb, *options);
  verb.addText("--subject", options->subject, "Subject").required();
  addBodyOptions(verb, options->bodies);
  verb.addFlag("--no-text", options->noText, "Do not make a plain text from the HTML when none is given");
  verb.addText(
          "--signature-file", options->bodies.signatureFile,
          "File to put below the plain text and the HTML, after a line with \"-- \"; - is standard input")
      .kind(kFile);
  addInlineOptions(verb, options->shown);
  addCalendarOptions(verb, options->calendar);
  addAttachOptions(verb, options->attached);
  verb.addRepeated("--header", options->headers,
                   "Another field, 'Name: value', that has no option of its own");
  verb.addText("--charset", options->charset,
               "Preferred charset; utf-8 is used when the text does not fit. Not utf-7, utf-16 or utf-32");
  verb.addText("--date", options->date, "Date, such as 'Sat, 21 Nov 2026 08:30:00 +0100' (default: now)");
  addOutput(verb, options->output);
  verb.addText("--envelope-out", options->envelope, "File for the SMTP sender and all recipients, as JSON")
      .kind(kFile);
  verb.setFooter(
      "Example:\n  mailtree compose --from anna@berg.example --to 'Jo <jo@see.example>' --subject Grüße \\\n"
      "    --text 'Bis bald!' --html-file page.html --attach plan.pdf -o mail.eml\n"
      "  mailtree compose --from anna@berg.example --subject News --html '<img src=\"cid:logo.png\">' \\\n"
      "    --inline logo.png -o news.eml");
  verb.whenChosen([options, &action] {
    options->bodies.makesText = !options->noText;
    action = [options] { return compose(*options); };
  });
}

}  // namespace mailtree::cli
