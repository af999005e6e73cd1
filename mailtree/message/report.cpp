#include "mailtree/message/report.h"

#include <algorithm>
#include <utility>

#include "mailtree/message/displayed_text.h"
#include "mailtree/message/internal.h"

namespace mailtree {
namespace {

constexpr std::string_view kOriginalTypes[] = {"message/rfc822", "text/rfc822-headers", "message/global",
                                               "message/global-headers"};

bool isOriginal(std::string_view type) noexcept {
  return std::ranges::any_of(kOriginalTypes,
                             [type](std::string_view wanted) { return equalsNoCase(type, wanted); });
}

/// Says which message the report is about: by its header, else by a field of the report.
void identifyOriginal(Report& report) {
  MimeHeader header;
  header.loadFromEntity(report.original);
  report.subject = header.decodedValue(header.findField("Subject"));
  report.messageId = firstIdIn(header.decodedValue(header.findField("Message-ID")));
  const std::string* const named = findReportField(report.fields, "Original-Message-ID");
  if (report.messageId.empty() && named) report.messageId = firstIdIn(*named);
}

}  // namespace

std::optional<Report> reportIn(const Outline& outline, const Displayed& display) {
  std::optional<Report> report;
  for (const PartRow& row : outline.rows) {
    const std::optional<ReportKind> kind = reportKindOf(row.contentType);
    if (!report && kind) {
      ReportFields fields = readReportFields(*kind, row.node->m_body.view());
      report = Report{*kind, std::move(fields.message), std::move(fields.recipients), {}, {}, {}, {}};
    } else if (report && report->original.empty() && isOriginal(row.contentType)) {
      report->original = row.node->m_body.view();
    }
  }
  if (!report) return std::nullopt;
  identifyOriginal(*report);
  report->text = displayedText(outline, display, /*budget=*/nullptr);
  return report;
}

}  // namespace mailtree
