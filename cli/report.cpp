// cli/report.cpp - mailtree report: reads delivery status, disposition notification and feedback reports.
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/errors.h"
#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "cli/support/terminal.h"
#include "cli/support/terminal_table.h"

namespace mailtree::cli {
namespace {

struct ReportOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool json = false;
};

constexpr std::string_view nameOf(ReportKind kind) noexcept {
  switch (kind) {
    case ReportKind::deliveryStatus: return "delivery-status";
    case ReportKind::dispositionNotification: return "disposition-notification";
    case ReportKind::feedback: break;
  }
  return "feedback-report";
}

std::string inBrackets(const std::string& id) { return id.empty() ? id : "<" + id + ">"; }

std::string fieldsJson(const std::vector<ReportField>& fields) {
  ListText list;
  for (const ReportField& field : fields)
    list.addSerialized(ListText().add(field.name).add(field.value).closed());
  return list.closed();
}

std::string recipientsJson(const std::vector<ReportRecipient>& recipients) {
  ListText list;
  for (const ReportRecipient& recipient : recipients)
    list.addSerialized(ObjectText()
                           .addOrNull("recipient", recipient.address)
                           .addOrNull("original_recipient", recipient.original)
                           .addOrNull("action", recipient.action)
                           .addOrNull("status", recipient.status)
                           .addOrNull("diagnostic", recipient.diagnostic)
                           .addSerialized("fields", fieldsJson(recipient.fields))
                           .closed());
  return list.closed();
}

std::string originalJson(const Report& report) {
  return ObjectText()
      .addOrNull("message_id", inBrackets(report.messageId))
      .addOrNull("subject", report.subject)
      .closed();
}

void writeJson(const std::string& file, const std::optional<Report>& report, LimitSet limits) {
  ObjectText json;
  json.add("schema", kSchema).add("file", file).addOrNull("report", report ? nameOf(report->kind) : "");
  if (report)
    json.addSerialized("original", originalJson(*report))
        .addSerialized("fields", fieldsJson(report->fields))
        .addSerialized("recipients", recipientsJson(report->recipients))
        .addOrNull("text", report->text);
  standardOutput() << json.addSerialized("limits", limitsOf(limits)).closed() << '\n';
}

void writeMessageLine(std::string_view line) {
  writeLine(standardOutput(), standardOutputColumns(), kMessageLinePrefix, kMessageLinePrefix, line);
}

void writeFields(const Report& report) {
  standardOutput() << "Report: " << nameOf(report.kind) << '\n';
  const std::string about =
      report.subject + (report.subject.empty() ? "" : " ") + inBrackets(report.messageId);
  if (!about.empty()) writeLine("About:  ", about);
  for (const ReportField& field : report.fields) writeMessageLine(field.name + ": " + field.value);
}

std::string cell(std::string_view text) { return text.empty() ? "-" : singleSpaced(text); }

void writeText(const Report& report) {
  writeFields(report);
  if (!report.recipients.empty()) {
    Table table({{"Recipient"}, {"Action"}, {"Status"}, {"Diagnostic"}});
    for (const ReportRecipient& row : report.recipients)
      table.add({cell(row.address), cell(row.action), cell(row.status), cell(row.diagnostic)});
    standardOutput() << '\n';
    table.write(standardOutput());
  }
  const std::string_view text = trimRight(report.text);
  if (!text.empty()) standardOutput() << '\n';
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    writeMessageLine(trimRight(rest.substr(0, end)));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

Exit report(Input& input, const ReportOptions& options) {
  const std::optional<mailtree::Message> message = openMessage(input);
  if (!message) return Exit::unreadable;
  const LimitSet limits = limitsIn(*message);
  const std::optional<Report> found = message->report();
  if (options.json)
    writeJson(input.name, found, limits);
  else if (found)
    writeText(*found);
  else
    reportError(input.name, "not a report");
  return worse(found ? Exit::fine : Exit::negative, reportLimits(input.name, limits));
}

}  // namespace

void addReport(Verb app, Action& action) {
  auto options = std::make_shared<ReportOptions>();
  const Verb verb = app.addVerb("report",
                                "Show what happened to a message, from a bounce, a read receipt or a "
                                "complaint; status 1 when it is not a report");
  addSources(verb, options->sources);
  verb.addFlag("--json", options->json, "One JSON object on one line");
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "Shows the fields of the whole message, a row for each recipient, and the human-readable text.\n"
      "A bounce with only human-readable text is not a report.\n\n"
      "Example:\n  mailtree report samples/delivery-report.eml\n"
      "  mailtree report --json mail.eml | jq -r '.recipients[] | select(.action == \"failed\") | "
      ".recipient'");
  verb.whenChosen([options, &action] {
    action = [options] {
      return forEachMessage(options->sources,
                            {.hasTitles = !options->json, .needsAll = false, .stream = options->stream},
                            [&options](Input& input) { return report(input, *options); });
    };
  });
}

}  // namespace mailtree::cli
