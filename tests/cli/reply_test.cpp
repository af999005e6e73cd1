// What `mailtree reply` and `mailtree forward` write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/shown.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kMail =
    "From: Anna <anna@berg.example>\r\nTo: jo@see.example\r\nSubject: Boat\r\nDisposition-Notification-To: "
    "a@b.c\r\n"
    "Return-Receipt-To: a@b.c\r\nReturn-Path: <p@b.c>\r\nDelivered-To: p@b.c\r\nResent-To: "
    "p@b.c\r\nResent-Bcc: "
    "p@b.c\r\nX-Original-To: p@b.c\r\nReferences: <1@see.example>\r\nMIME-Version: 1.0\r\n"
    "Content-Type: multipart/alternative; boundary=b\r\n\r\n--b\r\n\r\nShall we?\r\n--b\r\n"
    "Content-Type: text/html\r\n\r\n<html><body>Shall <b>we</b>?</body></html>\r\n--b--\r\n";

TEST(Reply, goes_to_the_sender_and_whom_else_the_user_names) {
  const Workspace work;
  const std::string file = work.write("mail.eml", kMail);
  const struct {
    const char *verb, *subject, *to;
  } rows[] = {{"reply", "Subject: RE: Boat", "To: Anna <anna@berg.example>, Cy <cy@see.example>"},
              {"forward", "Subject: FW: Boat", "To: Cy <cy@see.example>"}};
  for (const auto& row : rows) {
    const Result result =
        mailtree(row.verb + (" " + file) +
                 " --from 'Jo <jo@see.example>' --to 'Cy <cy@see.example>' --cc di@see.example");
    EXPECT_EQ(result.status, 0) << result.err;
    for (const char* line : {row.subject, row.to, "From: Jo <jo@see.example>", "CC: di@see.example",
                             "References: <1@see.example>", "X-Priority: 3 (Normal)"})
      EXPECT_THAT(result.out, HasSubstr(std::string(line) + "\r\n")) << row.verb;
    for (const char* gone : {"Disposition-Notification-To", "Return-Receipt-To", "In-Reply-To", "p@b.c"})
      EXPECT_THAT(result.out, Not(HasSubstr(gone))) << row.verb;
  }
}

TEST(Reply, puts_the_text_in_front_of_both_quotes) {
  const Workspace work;
  const std::string file = work.write("mail.eml", kMail);
  const std::string answer = work.path("answer.eml");
  ASSERT_EQ(mailtree("reply " + file + " -o " + answer + " --text 'Yes, 2 < 3 & grüße\nJo'").status, 0);
  EXPECT_THAT(mailtree("body --text " + answer).out,
              testing::StartsWith("Yes, 2 < 3 & grüße\r\nJo\r\n\r\n-----Original Message-----\r\nFrom: Anna "
                                  "<anna@berg.example>\r\n"));
  const std::string page = mailtree("body --html " + answer).out;
  EXPECT_THAT(page,
              HasSubstr("<p>Yes, 2 &lt; 3 &amp; grüße<br>\r\nJo</p>\r\n<p>-----Original Message-----<br>"));
  EXPECT_THAT(page, HasSubstr("Shall <b>we</b>?"));
}

TEST(Reply, keeps_what_is_attached_and_quotes_every_sample) {
  for (const auto& entry : std::filesystem::directory_iterator(places::samples())) {
    const Workspace work;
    const std::string file = entry.path().string(), answer = work.path("answer.eml");
    const auto attachments = [](const std::string& mail) {
      return nlohmann::json::parse(mailtree("attachments --json " + mail).out).size();
    };
    for (const std::string verb : {"reply ", "forward "}) {
      ASSERT_EQ(mailtree(verb + file + " --text Mine -o " + answer).status, 0) << verb << file;
      const Result plain = mailtree("body --text " + answer), html = mailtree("body --html " + answer);
      EXPECT_THAT(plain.out + html.out, HasSubstr("-----Original Message-----")) << file;
      EXPECT_THAT(plain.out + html.out, HasSubstr("Mine")) << file;
      EXPECT_GE(attachments(answer), attachments(file)) << file;
    }
  }
}

TEST(Reply, page_labelled_as_plain_text_gets_the_text_as_html) {
  const Workspace work;
  const std::string file =
      work.write("mail.eml", "From: a@b.example\r\nSubject: x\r\n\r\n<html><body>page</body></html>\r\n");
  EXPECT_THAT(mailtree("reply " + file + " --text '<>'").out,
              HasSubstr("<p>&lt;&gt;</p>\r\n<p>-----Original Message-----<br>"));
}

TEST(Reply, text_stands_in_front_of_the_very_body_that_is_quoted) {
  const Workspace work;
  const std::string file = work.write(
      "mail.eml",
      "From: a@x\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=m\r\n\r\n--m\r\n"
      "Content-Type: multipart/signed; boundary=s\r\n\r\n--s\r\n\r\nThe mail.\r\n--s\r\n"
      "Content-Type: application/pgp-signature\r\n\r\nx\r\n--s--\r\n--m\r\n\r\nFrom the list.\r\n--m--\r\n");
  EXPECT_THAT(mailtree("reply " + file + " --text Yes").out,
              HasSubstr("\r\nYes\r\n\r\n-----Original Message-----\r\n"));
}

TEST(Reply, quotes_a_report_in_its_own_text_and_page) {
  const Workspace work;
  const std::string file =
      work.write("mail.eml",
                 "From: a@x\nMIME-Version: 1.0\nContent-Type: multipart/report; boundary=r\n\n--r\n"
                 "Content-Type: multipart/alternative; boundary=a\n\n--a\n\nfailed grüße\n--a\n"
                 "Content-Type: text/html\n\n<p>failed\n--a--\n--r\nContent-Type: "
                 "message/delivery-status\n\nAction: x\n--r--\n");
  const Result result = mailtree("reply " + file + " --text Yes");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Content-Type: multipart/report"));
  EXPECT_THAT(result.out, HasSubstr("\r\nYes\r\n\r\n=2D----Original"));
  EXPECT_THAT(result.out, HasSubstr("<p>Yes</p>\r\n<p>-----Original"));
  EXPECT_THAT(result.out, Not(HasSubstr("=0A")));
}

TEST(Reply, refuses_what_it_cannot_do) {
  const Workspace work;
  const std::string mail = work.write("mail.eml", kMail);
  // The text goes into the enclosure of a signed part, where no reader looks for it.
  const std::string hopeless = work.write(
      "hopeless.eml",
      "From: a@b.example\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=a\r\n\r\n--a\r\n"
      "Content-Type: application/pdf\r\nContent-Disposition: attachment\r\n\r\n%PDF\r\n--a\r\n"
      "Content-Type: multipart/signed; boundary=b\r\n\r\n--b\r\nContent-Type: multipart/alternative; "
      "boundary=c\r\n\r\n"
      "--c\r\nContent-Type: text/calendar\r\n\r\nBEGIN:VCALENDAR\r\n--c--\r\n--b\r\n"
      "Content-Type: application/pkcs7-signature\r\n\r\nx\r\n--b--\r\n--a--\r\n");
  const struct {
    std::string arguments;
    int status;
    const char* problem;
  } rows[] = {
      {hopeless, 1, "no text that could be quoted"},
      {mail + " --to nobody", 2, "--to"},
      {mail + " --from 'a@b.example, c@d.example'", 2, "--from"},
      {mail + " --text a --text-file b", 2, "--text"},
      {"- --text-file -", 2, "standard input"},
      {mail + " --text-file " + work.path("missing"), 3, "missing"},
      {work.path("missing"), 3, "missing"},
  };
  for (const auto& row : rows) {
    const std::string out = work.path("out.eml");
    const Result result = mailtree("reply " + row.arguments + " -o " + out);
    EXPECT_EQ(result.status, row.status) << row.arguments << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.problem)) << row.arguments;
    EXPECT_FALSE(std::filesystem::exists(out)) << row.arguments;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
