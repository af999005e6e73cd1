// What `mailtree report` tells of reports as many kinds of mail servers write them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

std::string report(const std::string& name) { return places::testData() + "/reports/" + name + ".eml"; }

std::string orDash(const json& value) { return value.is_null() ? "-" : value.get<std::string>(); }

/// "recipient action status diagnostic" for each.
std::string recipientsOf(const json& told) {
  std::string text;
  for (const json& recipient : told["recipients"]) {
    for (const char* key : {"recipient", "action", "status", "diagnostic"})
      text += orDash(recipient[key]) + " ";
    text.back() = '\n';
  }
  return text;
}

TEST(Report, reads_what_servers_of_every_family_write) {
  const struct {
    const char* name;
    const char* kind;
    const char* about;  // Message-ID and subject
    const char* field;  // one of the message, and its value
    const char* value;
    const char* recipients;
    const char* text;  // the beginning
  } rows[] = {
      {"smtpd", "delivery-status", "<baskets-77@orchard.example> Erntekörbe", "X-Queue-ID", "4QJ7xk2mZ1zQ",
       "anna@cider.example failed 5.2.2 552 5.2.2 <anna@cider.example>: the mailbox is full (quota 50 MB)\n"
       "bruno@perry.example delayed 4.4.1 connect to mx.perry.example[203.0.113.9]:25: timed out\n",
       "relay.orchard.example could not deliver"},
      {"groupware", "delivery-status", "<stone-1@quarry.example> Stone prices", "Reporting-MTA",
       "dns;OFFICE01.quarry.example",
       "ghost@quarry.example failed 5.1.10 550 5.1.10 DIRECTORY.NotFound; ghost@quarry.example is in no "
       "directory\n",
       "Delivery has failed to these recipients: ghost@quarry.example. The address was"},
      {"router", "delivery-status", "<refill@lantern.example> Refill", "Reporting-MTA",
       "dns; mx.lantern.example", "wick@flame.example failed 5.0.0 554 5.7.1 Relaying is not for you\n",
       "This message was made by the program"},
      {"classic", "delivery-status", "- Corn", "Received-From-MTA", "DNS; fields.harvest.example",
       "scare@barn.example failed 5.3.5 553 5.3.5 the configuration loops\ncrow@harvest.example failed 5.3.0 "
       "1\n",
       "The original message was received"},
      {"webmail", "delivery-status", "<mia-1@webmail.example> Günstige Blumen", "X-Original-Message-ID",
       "<mia-1@webmail.example>",
       "zum@garten.example failed 5.1.1 550-5.1.1 There is no such account. Please look for 550 5.1.1 typing "
       "errors. a1si2 - gsmtp\n",
       "Address not found – zum@garten.example"},
      {"global", "delivery-status", "<wein@eai.example> Weinprobe für alle", "Reporting-MTA",
       "dns; mx.eai.example",
       "rosé@wein.example failed 5.6.7 553 5.6.7 kein UTF-8 möglich\nrosé+🍷@wein.example delivered 2.0.0 -\n"
       "glas\\x{2F@wein.example relayed - -\n",
       "Zugestellt"},
      {"complaint", "feedback-report", "<spring@shop.example> Spring sale", "Source-IP", "192.0.2.44",
       "tim@inbox.example abuse - -\nkim@inbox.example abuse - -\n", "This is an abuse report"},
      {"receipt", "disposition-notification", "<rota-10@ward.example> -", "Reporting-UA",
       "desk7.clinic.example; Postreader 4.2",
       "olga@clinic.example deleted/error - folder \"Rota\" is read-only\n",
       "Your message was deleted without being read. Grüße"},
  };
  for (const auto& row : rows) {
    const Result result = mailtree("report --json " + report(row.name));
    ASSERT_EQ(result.status, 0) << row.name << result.err;
    const json told = json::parse(result.out);
    EXPECT_EQ(told["report"], row.kind) << row.name;
    EXPECT_EQ(orDash(told["original"]["message_id"]) + " " + orDash(told["original"]["subject"]), row.about)
        << row.name;
    EXPECT_THAT(told["fields"], testing::Contains(json::array({row.field, row.value}))) << row.name;
    EXPECT_EQ(recipientsOf(told), row.recipients) << row.name;
    EXPECT_THAT(told["text"].get<std::string>(), testing::StartsWith(row.text)) << row.name;
  }
}

TEST(Report, shows_the_message_then_the_recipients_then_the_text) {
  EXPECT_EQ(mailtree("report " + report("complaint")).out,
            "Report: feedback-report\n"
            "About:  Spring sale <spring@shop.example>\n"
            "> Feedback-Type: Abuse\n"
            "> User-Agent: Mailcloud-FBL/1.0\n"
            "> Version: 1\n"
            "> Original-Mail-From: <news@shop.example>\n"
            "> Source-IP: 192.0.2.44\n"
            "\n"
            "Recipient          Action  Status  Diagnostic\n"
            "tim@inbox.example  abuse   -       -\n"
            "kim@inbox.example  abuse   -       -\n"
            "\n"
            "> This is an abuse report for a message that came from 192.0.2.44.\n");
}

TEST(Report, that_is_only_text_for_people_or_none_at_all_is_a_no) {
  for (const std::string& file : {report("plain-bounce"), sample("plain"), sample("digest")}) {
    const Result result = mailtree("report " + file);
    EXPECT_EQ(result.status, 1) << file;
    EXPECT_EQ(result.out, "") << file;
    EXPECT_THAT(result.err, HasSubstr("no report")) << file;
  }
  const Result forPrograms = mailtree("report --json " + report("plain-bounce"));
  EXPECT_EQ(forPrograms.status, 1);
  EXPECT_TRUE(json::parse(forPrograms.out)["report"].is_null());
}

TEST(Report, does_not_drive_the_terminal) {
  const Workspace work;
  const std::string file = work.write(
      "m",
      "Content-Type: multipart/report; boundary=b\n\n--b\n\nText\x1b[2J\n--b\n"
      "Content-Type: message/delivery-status\n\nX-\x1b[2J: \x1b[2J\nReporting-MTA: \x1b]0;x\x07\n\n"
      "Final-Recipient: utf-8; \\x{1B}[2J\\x{202E}@b\nAction: \x1b[1m\nDiagnostic-Code: =?utf-8?q?=1B[2J?=\n"
      "\n--b--\n");
  for (const char* option : {"", "--json "}) {
    const Result result = mailtree(std::string("report ") + option + file);
    EXPECT_EQ(result.status, 0) << result.err;
    for (const char* danger : {"\033", "\x07", "\xE2\x80\xAE"})
      EXPECT_THAT(result.out, testing::Not(HasSubstr(danger)));
  }
}

}  // namespace
}  // namespace mailtree::cli_test
