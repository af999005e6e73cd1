// cli/report.cpp - mailtree report: reads delivery status, disposition notification and feedback reports.
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "cli/support/terminal.h"
#include "cli/support/terminal_table.h"

namespace mailtree::cli {
namespace {

struct ReportOptions {
  SourceArguments sources;
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

Json fieldsJson(const std::vector<ReportField>& fields) {
  Json list = Json::array();
  for (const ReportField& field : fields) list.push_back({field.name, field.value});
  return list;
}

Json recipientsJson(const std::vector<ReportRecipient>& recipients) {
  Json list = Json::array();
  for (const ReportRecipient& recipient : recipients)
    list.push_back({{"recipient", textOrNull(recipient.address)},
                    {"original_recipient", textOrNull(recipient.original)},
                    {"action", textOrNull(recipient.action)},
                    {"status", textOrNull(recipient.status)},
                    {"diagnostic", textOrNull(recipient.diagnostic)},
                    {"fields", fieldsJson(recipient.fields)}});
  return list;
}

void writeJson(const std::string& file, const std::optional<Report>& report, LimitSet limits) {
  Json json = {{"schema", kSchema}, {"file", file}, {"report", Json()}};
  if (report) {
    json["report"] = nameOf(report->kind);
    json["original"] = {{"message_id", textOrNull(inBrackets(report->messageId))},
                        {"subject", textOrNull(report->subject)}};
    json["fields"] = fieldsJson(report->fields);
    json["recipients"] = recipientsJson(report->recipients);
    json["text"] = textOrNull(report->text);
  }
  json["limits"] = limitsOf(limits);
  std::cout << textOf(json) << '\n';
}

void writeMessageLine(std::string_view line) {
  writeLine(std::cout, standardOutputColumns(), kMessageLinePrefix, kMessageLinePrefix, line);
}

void writeFields(const Report& report) {
  std::cout << "Report: " << nameOf(report.kind) << '\n';
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
    std::cout << '\n';
    table.write(std::cout);
  }
  const std::string_view text = trimRight(report.text);
  if (!text.empty()) std::cout << '\n';
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
  verb.setFooter(
      "Shows the fields of the whole message, a row for each recipient, and the human-readable text.\n"
      "A bounce with only human-readable text is not a report.\n\n"
      "Example:\n  mailtree report samples/delivery-report.eml\n"
      "  mailtree report --json mail.eml | jq -r '.recipients[] | select(.action == \"failed\") | "
      ".recipient'");
  verb.whenChosen([options, &action] {
    action = [options] {
      return forEachMessage(options->sources, {.hasTitles = !options->json, .needsAll = false},
                            [&options](Input& input) { return report(input, *options); });
    };
  });
}

}  // namespace mailtree::cli
