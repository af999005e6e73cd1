// cli/report.cpp - mailtree report: reads delivery status, disposition notification and feedback reports.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/json_values.h"
#include "cli/support/terminal.h"
#include "cli/support/terminal_table.h"
#include "mailtree/message/outline.h"
#include "mailtree/mime/ReportFields.h"

namespace mailtree::cli {
namespace {

struct ReportOptions {
  std::string file;
  bool json = false;
};

/// A report read from its message.
struct Report {
  ReportKind kind;
  ReportFields fields;
  std::string original;  ///< The reported message or its header; empty when missing.
  std::string text;      ///< The human-readable part.
};

constexpr std::string_view nameOf(ReportKind kind) noexcept {
  switch (kind) {
    case ReportKind::deliveryStatus: return "delivery-status";
    case ReportKind::dispositionNotification: return "disposition-notification";
    case ReportKind::feedback: break;
  }
  return "feedback-report";
}

constexpr std::string_view kOriginalTypes[] = {"message/rfc822", "text/rfc822-headers", "message/global",
                                               "message/global-headers"};

bool isOriginal(std::string_view type) noexcept {
  for (const std::string_view wanted : kOriginalTypes)
    if (equalsNoCase(type, wanted)) return true;
  return false;
}

/// Reads the first part that is a report; the reported message follows it.
std::optional<Report> reportIn(Message& message) {
  const Outline outline = outlineOf(*message.root);
  std::optional<Report> report;
  for (const PartRow& row : outline.rows) {
    const std::optional<ReportKind> kind = reportKindOf(row.contentType);
    if (!report && kind)
      report = Report{*kind, readReportFields(*kind, row.node->m_body.view()), {}, {}};
    else if (report && report->original.empty() && isOriginal(row.contentType))
      report->original = row.node->m_body.view();
  }
  const int text = outline.plainText >= 0 ? outline.plainText : outline.html;
  if (report && text >= 0) report->text = textOf(outline.row(text));
  return report;
}

/// Identifies the reported message.
struct Original {
  std::string id, subject;
};

Original originalOf(const Report& report) {
  MimeHeader header;
  header.loadFromEntity(report.original);
  Original original{header.decodedValue(header.findField("Message-ID")),
                    header.decodedValue(header.findField("Subject"))};
  const std::string* const named = findReportField(report.fields.message, "Original-Message-ID");
  if (original.id.empty() && named) original.id = *named;
  return original;
}

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
    const Original original = originalOf(*report);
    json["report"] = nameOf(report->kind);
    json["original"] = {{"message_id", textOrNull(original.id)}, {"subject", textOrNull(original.subject)}};
    json["fields"] = fieldsJson(report->fields.message);
    json["recipients"] = recipientsJson(report->fields.recipients);
    json["text"] = textOrNull(report->text);
  }
  json["limits"] = limitsOf(limits);
  std::cout << lineOf(json) << '\n';
}

void writeMessageLine(std::string_view line) {
  writeLine(std::cout, standardOutputColumns(), kMessageLinePrefix, kMessageLinePrefix, line);
}

void writeFields(const Report& report) {
  const Original original = originalOf(report);
  std::cout << "Report: " << nameOf(report.kind) << '\n';
  const std::string about = original.subject + (original.subject.empty() ? "" : " ") + original.id;
  if (!about.empty()) writeLine("About:  ", about);
  for (const ReportField& field : report.fields.message) writeMessageLine(field.name + ": " + field.value);
}

std::string cell(std::string_view text) { return text.empty() ? "-" : singleSpaced(text); }

void writeText(const Report& report) {
  writeFields(report);
  if (!report.fields.recipients.empty()) {
    Table table({{"Recipient"}, {"Action"}, {"Status"}, {"Diagnostic"}});
    for (const ReportRecipient& row : report.fields.recipients)
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

Exit report(const ReportOptions& options) {
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const std::optional<Report> found = reportIn(*message);
  if (options.json)
    writeJson(options.file, found, message->limits());
  else if (found)
    writeText(*found);
  else
    reportError(options.file, "not a report");
  const Exit result =
      worse(found ? Exit::fine : Exit::negative, reportLimits(options.file, message->limits()));
  return worse(result, finishStandardOutput());
}

}  // namespace

void addReport(CLI::App& app, Action& action) {
  auto options = std::make_shared<ReportOptions>();
  CLI::App* verb = app.add_subcommand("report",
                                      "Show what happened to a message, from a bounce, a read receipt or a "
                                      "complaint; status 1 when it is not a report");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  verb->add_flag("--json", options->json, "One JSON object on one line");
  verb->footer(
      "Shows the fields of the whole message, a row for each recipient, and the human-readable text.\n"
      "A bounce with only human-readable text is not a report.\n\n"
      "Example:\n  mailtree report samples/delivery-report.eml\n"
      "  mailtree report --json mail.eml | jq -r '.recipients[] | select(.action == \"failed\") | "
      ".recipient'");
  verb->callback([options, &action] { action = [options] { return report(*options); }; });
}

}  // namespace mailtree::cli
