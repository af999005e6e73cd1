// cli/compose.cpp - mailtree compose: a new message from texts, files and addresses.
#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"
#include "cli/output.h"
#include "cli/writing/addresses.h"
#include "cli/writing/bodies.h"
#include "cli/writing/fields.h"
#include "cli/writing/files.h"

namespace mailtree::cli {
namespace {

struct ComposeOptions {
  std::string from, subject;
  std::vector<std::string> to, cc, bcc, headers;
  std::optional<std::string> replyTo, charset, date, envelope;
  BodyOptions bodies;
  AttachOptions attached;
  std::string output;
  bool keepBcc = false;
};

/// Everything the command line names, checked and read.
struct Draft {
  std::vector<HeaderField> fields;
  Bodies bodies;
  std::vector<AttachedFile> files;
};

/// Turns the options that are header fields into fields, in the order in which they will stand; the problem
/// goes to standard error.
class FieldReader {
 public:
  explicit FieldReader(std::vector<HeaderField>& fields) : m_fields(fields) {}

  void take(const char* option, const char* name, const std::string& value) {
    take(option, HeaderField{name, std::string(trim(value))});
  }
  void take(const char* option, const char* name, const std::optional<std::string>& value) {
    if (value) take(option, name, *value);
  }
  void take(const char* option, const char* name, const std::vector<std::string>& values) {
    for (const std::string& value : values) take(option, name, value);
  }
  void take(const std::string& option, HeaderField field) {
    if (const auto problem = whyBadField(field)) m_result = refuse(option, *problem);
    m_fields.push_back(std::move(field));
  }
  Exit result() const { return m_result; }

 private:
  std::vector<HeaderField>& m_fields;
  Exit m_result = Exit::fine;
};

Exit readFields(const ComposeOptions& options, std::vector<HeaderField>& fields) {
  FieldReader reader(fields);
  reader.take("--date", "Date", options.date);
  reader.take("--from", "From", options.from);
  reader.take("--to", "To", options.to);
  reader.take("--cc", "Cc", options.cc);
  reader.take("--bcc", "Bcc", options.bcc);
  reader.take("--reply-to", "Reply-To", options.replyTo);
  reader.take("--subject", "Subject", options.subject);
  for (const std::string& header : options.headers)
    reader.take("--header '" + header + "'", fieldOfText(header));
  return reader.result();
}

Exit checkOptions(const ComposeOptions& options) {
  if (options.charset && !isMailCharset(*options.charset))
    return refuse("--charset", "'" + *options.charset + "': mail text cannot be written in it");
  if (options.bodies.readsStandardInput() + options.attached.readsStandardInput() > 1)
    return refuse("-", "standard input can be only one of the files");
  if (!options.envelope) return Exit::fine;
  if (options.envelope->empty()) return refuse("--envelope-out", "the name is empty");
  const bool isSame = *options.envelope == options.output ||
                      (isStandardOutput(*options.envelope) && isStandardOutput(options.output));
  return isSame ? refuse("--envelope-out", "the message goes there") : Exit::fine;
}

/// Reads and checks everything before anything is written.
Exit read(const ComposeOptions& options, Draft& draft) {
  if (const Exit result = checkOptions(options); result != Exit::fine) return result;
  if (const Exit result = readFields(options, draft.fields); result != Exit::fine) return result;
  if (const Exit result = readBodies(options.bodies, draft.bodies); result != Exit::fine) return result;
  return readAttachedFiles(options.attached, draft.files);
}

/// The texts come first: they choose the charset in which the fields are encoded.
bool build(const ComposeOptions& options, Draft& draft, Email2& email, LogBase& log) {
  if (options.charset) preferCharset(email, *options.charset, draft.bodies);
  if (!putBodies(email, draft.bodies, log)) return false;
  for (const HeaderField& field : draft.fields) addField(email, field, log);
  if (options.keepBcc) showBcc(email, log);
  for (AttachedFile& file : draft.files)
    if (!attach(email, file, log)) return false;
  return true;
}

/// Sender and recipients for the program that sends, hidden ones included, each once.
std::string envelopeOf(Email2& email, LogBase& log) {
  StringBuffer reversePath;
  email.getSmtpReversePathUtf8(reversePath, log);
  ExtPtrArraySb addresses;
  email.getAllRecipientAddressesA(addresses, ExtPtrArray(), log);
  nlohmann::ordered_json recipients = nlohmann::ordered_json::array();
  for (int i = 0; i < addresses.getSize(); ++i) recipients.push_back(addresses.sbAt(i)->view());
  const nlohmann::ordered_json envelope = {{"reverse_path", reversePath.view()}, {"recipients", recipients}};
  return envelope.dump() + '\n';
}

Exit compose(const ComposeOptions& options) {
  Draft draft;
  if (const Exit result = read(options, draft); result != Exit::fine) return result;
  LogMemory log;
  Email2 email;
  if (!build(options, draft, email, log)) {
    complain(lastError(log, "not enough memory"));
    return Exit::unreadable;
  }
  if (!options.envelope) return writeMessage(email, options.output);

  // The message takes its place only after the envelope was written, and the envelope last: whoever finds it
  // finds the message too.
  TextFile envelope(*options.envelope);
  if (!envelope.write(envelopeOf(email, log))) return Exit::unreadable;
  const Exit result = writeMessage(email, options.output);
  return result == Exit::fine && !envelope.commit() ? Exit::unreadable : result;
}

void addAddressOptions(CLI::App& verb, ComposeOptions& options) {
  addText(verb, "--from", options.from, "Sender, such as 'Anna Berg <anna@berg.example>'")->required();
  addRepeated(verb, "--to", options.to, "Recipients, one or a list with commas");
  addRepeated(verb, "--cc", options.cc, "Recipients of a copy");
  addRepeated(verb, "--bcc", options.bcc, "Hidden recipients: in the envelope, not in the message");
  verb.add_flag("--keep-bcc", options.keepBcc, "Write them into the message too");
  addText(verb, "--reply-to", options.replyTo, "Where answers go");
}

}  // namespace

void addCompose(CLI::App& app, Action& action) {
  auto options = std::make_shared<ComposeOptions>();
  CLI::App* verb = app.add_subcommand("compose", "Make a message of texts, files and addresses");
  addAddressOptions(*verb, *options);
  addText(*verb, "--subject", options->subject, "Subject")->required();
  addBodyOptions(*verb, options->bodies);
  addAttachOptions(*verb, options->attached);
  addRepeated(*verb, "--header", options->headers, "Another field, 'Name: value'");
  addText(*verb, "--charset", options->charset, "Charset of the texts when they fit in it; else utf-8");
  addText(*verb, "--date", options->date, "Date, such as 'Sat, 21 Nov 2026 08:30:00 +0100'; else now");
  addOutput(*verb, options->output);
  addText(*verb, "--envelope-out", options->envelope, "File for the SMTP sender and all recipients, as JSON");
  verb->footer(
      "Example:\n  mailtree compose --from anna@berg.example --to 'Jo <jo@see.example>' --subject Grüße \\\n"
      "    --text 'Bis bald!' --html-file page.html --attach plan.pdf -o mail.eml");
  verb->callback([options, &action] { action = [options] { return compose(*options); }; });
}

}  // namespace mailtree::cli
