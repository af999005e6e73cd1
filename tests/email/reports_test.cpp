// Parts of reports, and the fields of a delivery status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

TEST(Reports, are_parts_about_messages_but_no_messages) {
  const struct {
    const char* type;
    bool isReport;
  } rows[] = {
      {"message/delivery-status", true}, {"MESSAGE/Feedback-Report", true},
      {"message/partial", true},         {"text/rfc822-headers", true},
      {"Text/RFC822-Headers-x", true},   {"message/rfc822", false},
      {"MESSAGE/RFC822", false},         {"text/rfc822", false},
      {"multipart/report", false},
  };
  for (const auto& row : rows) EXPECT_EQ(buildTree(row.type)->isReportPart(), row.isReport) << row.type;
}

TEST(Reports, deliberately_count_afresh_in_each_enclosure_when_they_are_read) {
  const struct {
    const char* tree;
    int count;
    const char* read;  // by positions 0, 1, 2
  } rows[] = {
      {"plain", 0, "---"},
      {"delivery[body=A]", 1, "A--"},
      {"report(plain,delivery[body=A],text/rfc822-headers[body=B])", 2, "AB-"},
      {"report(plain,delivery[body=A],rfc822)", 1, "A--"},
      {"mixed(message/x[body=A],report(message/x[body=B],message/x[body=C]))", 3, "AC-"},
      {"mixed(mixed(plain),report(delivery[body=A]),message/x[body=B])", 2, "A--"},
      {"mixed(alternative(delivery[body=A]),delivery[body=B])", 1, "B--"},
      {"alternative(delivery[body=A],report(delivery[body=B],delivery[body=C]))", 3, "AC-"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    EXPECT_EQ(root->getNumReports(), row.count) << row.tree;
    LogNull log;
    std::string read;
    for (int i = 0; i < 3; ++i) {
      StringBuffer out("what was there");
      const bool found = root->getReport(i, log, out);
      EXPECT_EQ(found, !out.isEmpty()) << row.tree;
      read += out.isEmpty() ? "-" : out.getString();
    }
    EXPECT_EQ(read, row.read) << row.tree;
  }
}

/// A report in which the delivery status is this text, written with LF.
EmailPtr reportWith(const std::string& status, const std::string& type = "message/delivery-status") {
  return load("Content-Type: multipart/report; boundary=b\n\n--b\n\nSorry.\n--b\nContent-Type: " + type +
              "\n\n" + status + "\n--b--\n");
}

std::string info(Email2& root, const char* fieldName) {
  XString out("what was there");
  LogNull log;
  const bool found = root.getDeliveryStatusInfo(fieldName, out, log);
  EXPECT_EQ(found, !out.isEmpty());
  return out.getUtf8();
}

std::string recipients(Email2& root) {
  ClsStringArray out;
  LogNull log;
  EXPECT_TRUE(root.getDsnFinalRecipients(out, log));
  std::string text;
  for (int i = 0; i < out.getSize(); ++i) text += std::string(i ? "," : "") + out.getUtf8(i);
  return text;
}

TEST(DeliveryStatus, gives_a_field_of_any_block_and_the_recipients_of_all) {
  const struct {
    const char* status;
    const char* reporter;
    const char* recipient;
    const char* all;
  } rows[] = {
      {"Reporting-MTA: dns; a.example\n\nFinal-Recipient: rfc822; x@y.example\n\nFinal-Recipient: "
       "RFC822;z@y.example",
       "dns; a.example", "rfc822; x@y.example", "x@y.example,z@y.example"},
      {"\nReporting-MTA:dns;\n b.example\nFinal-Recipient: x400; C=de; rfc822; x", "dns; b.example",
       "x400; C=de; rfc822; x", "x400; C=de;  x"},
      {"Reporting-MTA: =?utf-8?q?d=C3=BC?=\n", "dü", "", ""},
      {"\n\n\nAction: failed\n\n\n\n\nReporting-MTA: c", "c", "", ""},
  };
  for (const auto& row : rows) {
    for (const std::string& status : {std::string(row.status), crlf(row.status)}) {
      const EmailPtr root = reportWith(status);
      EXPECT_EQ(info(*root, "reporting-mta"), row.reporter) << status;
      EXPECT_EQ(info(*root, "Final-Recipient"), row.recipient) << status;
      EXPECT_EQ(recipients(*root), row.all) << status;
    }
  }
}

TEST(DeliveryStatus, deliberately_two_empty_lines_end_the_recipients_but_not_the_fields) {
  const EmailPtr root =
      reportWith("Final-Recipient: rfc822; a@b\n\n\nFinal-Recipient: rfc822; c@d\nStatus: 5.1.1");
  EXPECT_EQ(recipients(*root), "a@b");
  EXPECT_EQ(info(*root, "Status"), "5.1.1");
}

TEST(DeliveryStatus, is_the_best_of_three_kinds_of_report) {
  const struct {
    const char* tree;
    const char* content;
  } rows[] = {
      {"mixed(message/feedback-report[body=F: 1],message/disposition-notification[body=F: "
       "2],delivery[body=F: 3])",
       "F: 3"},
      {"mixed(message/feedback-report[body=F: 1],message/disposition-notification[body=F: 2])", "F: 2"},
      {"alternative(related(message/feedback-report[body=F: 1]))", "F: 1"},
      {"mixed(delivery[body=F: first],delivery[body=F: second])", "F: first"},
      {"delivery[body=F: \xFF]", "F: \xEF\xBF\xBD"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    XString out("what was there");
    LogNull log;
    EXPECT_TRUE(root->getDeliveryStatusContent(out, log)) << row.tree;
    EXPECT_STREQ(out.getUtf8(), row.content) << row.tree;
  }
}

TEST(DeliveryStatus, comes_decoded) {
  const EmailPtr root = load(
      "Content-Type: message/delivery-status\nContent-Transfer-Encoding: base64\n\n"
      "RmluYWwtUmVjaXBpZW50OiByZmM4MjI7IGFAYgo=\n");
  EXPECT_EQ(recipients(*root), "a@b");
}

/// What the three operations log; each must fail.
std::string errorsOf(Email2& root) {
  LogMemory log;
  XString out;
  ClsStringArray list;
  EXPECT_FALSE(root.getDeliveryStatusInfo("Status", out, log));
  EXPECT_FALSE(root.getDsnFinalRecipients(list, log));
  EXPECT_FALSE(root.getDeliveryStatusContent(out, log));
  std::string errors;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == LogEntry::Kind::Error) errors += entry.text + "|";
  return errors;
}

TEST(DeliveryStatus, that_is_missing_or_empty_is_an_error) {
  EXPECT_EQ(errorsOf(*buildTree("report(plain,rfc822)")),
            "No message/delivery-status MIME part found (1)|No message/delivery-status MIME part found (2)|"
            "No message/delivery-status MIME part found (3)|");
  const char* const kEmpty = "Delivery-status information is empty|";
  EXPECT_EQ(errorsOf(*buildTree("report(delivery[body=],message/feedback-report)")),
            std::string(kEmpty) + kEmpty + kEmpty);
}

TEST(Reports, are_found_in_a_tree_deeper_than_any_stack) {
  const EmailPtr root = buildChain(200'000, "multipart/report", "message/delivery-status");
  LogNull log;
  StringBuffer out;
  EXPECT_EQ(root->getNumReports(), 1);
  EXPECT_TRUE(root->getReport(0, log, out));
}

TEST(Reports, of_a_destroyed_node_are_none) {
  const EmailPtr root = buildTree("delivery[body=Status: 1]");
  const Killed dead(*root);
  LogMemory log;
  StringBuffer out("x");
  EXPECT_FALSE(root->isReportPart());
  EXPECT_EQ(root->getNumReports(), 0);
  EXPECT_FALSE(root->getReport(0, log, out));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_EQ(errorsOf(*root), "");
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
