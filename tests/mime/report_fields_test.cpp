// What reports say of messages and recipients, in forms that programs write and in forms they should not.
#include "mailtree/mime/ReportFields.h"

#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// "message fields | address action status diagnostic; ..."; "-" for what is not said.
std::string summary(ReportKind kind, std::string_view report) {
  const ReportFields fields = readReportFields(kind, report);
  std::string text;
  for (const ReportField& field : fields.message) text += field.name + "=" + field.value + ",";
  text += "|";
  for (const ReportRecipient& recipient : fields.recipients) {
    for (const auto* said : {&recipient.address, &recipient.action, &recipient.status, &recipient.diagnostic})
      text += (said->empty() ? "-" : *said) + " ";
    text.back() = ';';
  }
  return text;
}

std::string deliveryStatus(std::string_view report) { return summary(ReportKind::deliveryStatus, report); }

TEST(ReportFields, of_a_delivery_status_are_in_blocks_however_these_are_parted) {
  const Row rows[] = {
      {"Reporting-MTA: m\n\nFinal-Recipient: rfc822; a@b\nAction: failed\n\nFinal-Recipient: rfc822; c@d\n",
       "Reporting-MTA=m,|a@b failed - -;c@d - - -;"},
      {"\r\n\r\nReporting-MTA: m\r\n \t \r\n\r\nFinal-Recipient: x; a\r\n", "Reporting-MTA=m,|a - - -;"},
      {"Reporting-MTA: m\rX-A: 1\r\rX-B: 2\rFinal-Recipient:a", "Reporting-MTA=m,X-A=1,|a - - -;"},
      // run together, with fields that go to the one side and to the other
      {"X-Queue: q\nReporting-MTA: m\nFinal-Recipient: x; a\nX-Note: n\nFinal-Recipient: x; b\n"
       "Status: 4.0.0\nArrival-Date: d\n",
       "X-Queue=q,Reporting-MTA=m,Arrival-Date=d,|a - - -;b - 4.0.0 -;"},
      {"MIME-Version: 1.0\nContent-Type: a/b;\nbroken\n\nStatus: 5.0.0\nContent-Length: 7\n",
       "|- - 5.0.0 -;"},
      {"Final-Recipient: x; a\nDiagnostic-Code: smtp; 550 no\nsuch   user, sorry\nStatus: 5.1.1",
       "|a - 5.1.1 550 no such user, sorry;"}};
  expectEach(deliveryStatus, rows);
}

TEST(ReportFields, are_freed_of_types_comments_and_brackets) {
  const Row rows[] = {
      {"Final-Recipient: RFC822 ; <A@b>", "|A@b - - -;"},
      {"Final-Recipient: a;b@c", "|b@c - - -;"},
      {"Final-Recipient: a@b;c", "|a@b;c - - -;"},
      {"Final-Recipient: ;a@b", "|;a@b - - -;"},
      {"Final-Recipient: rfc822; \\x{41}@b", "|\\x{41}@b - - -;"},
      {"Final-Recipient: utf-8; \\x{41}\\x{20AC}@b", "|A\u20AC@b - - -;"},
      {"Final-Recipient: utf-8; \\x{}\\x{D800}\\x{1234567}\\x{41", "|\\x{}\uFFFD\\x{1234567}\\x{41 - - -;"},
      {"Original-Recipient: rfc822; o@b", "|o@b - - -;"},
      {"Action: Failed(for good)", "|- failed - -;"},
      {"Status: 5.1.1 (bad mailbox)", "|- - 5.1.1 -;"},
      {"Diagnostic-Code: x-local;500; really", "|- - - 500; really;"},
      {"Diagnostic-Code: 550 no; try later", "|- - - 550 no; try later;"},
      {"Diagnostic-Code: smtp; =?iso-8859-1?q?550_gel=F6scht?=", "|- - - 550 gel\u00F6scht;"}};
  expectEach(deliveryStatus, rows);
}

TEST(ReportFields, of_other_reports_are_one_block) {
  EXPECT_EQ(summary(ReportKind::dispositionNotification,
                    "Reporting-UA: u\n\nFinal-Recipient: rfc822; a@b\nDisposition: "
                    "manual-action/MDN-sent-manually; Displayed\n\nWarning: w\n"),
            "Reporting-UA=u,Disposition=manual-action/MDN-sent-manually; Displayed,|a@b displayed - w;");
  EXPECT_EQ(summary(ReportKind::feedback,
                    "Feedback-Type: Abuse\nOriginal-Rcpt-To: <a@b>\n\nOriginal-Rcpt-To: c@d\nVersion: 1\n"),
            "Feedback-Type=Abuse,Version=1,|a@b abuse - -;c@d abuse - -;");
}

}  // namespace
}  // namespace mailtree
