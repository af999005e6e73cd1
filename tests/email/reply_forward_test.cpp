// Answers to messages and messages passed on: what is quoted where, and what becomes of the header.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "mailtree/email/internal.h"
#include "tests/email/cases.h"
#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

LogNull quiet;

constexpr const char* kPlainHead = "-----Original Message-----\r\n";
constexpr const char* kHtmlHead = "<p>-----Original Message-----<br>";

const std::string kFields =
    "From: Anna Berg <anna@berg.example>\nTo: Jo <jo@see.example>\nCc: cy@see.example\n"
    "Date: Sat, 21 Nov 2026 08:30:00 +0100\nSubject: RE: hello\n";

EmailPtr reply(EmailPtr mail, LogBase& log = quiet) {
  mail->convertToReply(log);
  return mail;
}

std::string quoted(const std::string& message) { return std::string(reply(load(message))->m_body.view()); }

TEST(Reply, quotes_a_text_behind_its_head) {
  EXPECT_EQ(quoted(kFields + "\nSee you there.\n"),
            "-----Original Message-----\r\nFrom: Anna Berg <anna@berg.example>\r\n"
            "Sent: Sat, 21 Nov 2026 08:30:00 +0100\r\nTo: Jo <jo@see.example>\r\nCC: cy@see.example\r\n"
            "Subject: RE: hello\r\n\r\nSee you there.\n");
  // Deliberate: the HTML head stands before the document and is not escaped.
  EXPECT_EQ(quoted(kFields + "MIME-Version: 1.0\nContent-Type: text/html\n\n<html><body>Hi"),
            "<p>-----Original Message-----<br>From: Anna Berg <anna@berg.example><br>"
            "Sent: Sat, 21 Nov 2026 08:30:00 +0100<br>To: Jo <jo@see.example><br>CC: cy@see.example<br>"
            "Subject: RE: hello<p><html><body>Hi");
  EXPECT_EQ(quoted("From: a@b.example\n\nx"),
            "-----Original Message-----\r\nFrom: a@b.example\r\nSent: \r\nSubject: \r\n\r\nx");
}

TEST(Reply, and_forward_set_the_header_for_the_caller_to_complete) {
  for (const bool isReply : {true, false}) {
    const EmailPtr mail =
        load(kFields +
             "Received: a\nReceived: b\nDKIM-Signature: c\nX-Spam: d\nReply-To: other@see.example\n"
             "Return-Path: <e@see.example>\nStatus: RO\nBcc: f@see.example\nX-Priority: 1\n"
             "Message-ID: <old@see.example>\nMIME-Version: 1.1\nList-Id: kept\n\ntext");
    isReply ? mail->convertToReply(quiet) : mail->convertToForward(quiet);
    EXPECT_EQ(disagreeingFields(*mail), "");
    EXPECT_NE(fieldOf(*mail, "Message-ID"), "<old@see.example>");
    EXPECT_NE(fieldOf(*mail, "Date"), "Sat, 21 Nov 2026 08:30:00 +0100");
    mail->removeHeaderField("Message-ID");
    mail->removeHeaderField("Date");
    EXPECT_EQ(fieldLines(*mail),
              std::string(isReply ? "Subject: RE: RE: hello\n" : "Subject: FW: RE: hello\n") +
                  "MIME-Version: 1.0\nList-Id: kept\nContent-Type: text/plain\n" +
                  (isReply ? "To: Anna Berg <anna@berg.example>\n" : "") + "X-Priority: 3 (Normal)\n");
    EXPECT_EQ(mail->getNumRecipients(1), isReply);
    EXPECT_EQ(mail->getNumRecipients(2) + mail->getNumRecipients(3), 0);
    EXPECT_TRUE(mail->m_fromAddr.m_address.isEmpty());
  }
}

TEST(Reply, head_stands_once_in_every_text_and_nowhere_else) {
  // The tree, and where a Plain or HTML head is. A single part without a type is plain text, the bytes of a
  // multipart without parts are kept, and no appointment is broken.
  for (const auto& [before, after] : rowsOf<2>(R"(
    plain                          | plain P/
    html[body=<html>x]             | html H/
    none                           | plain P/
    alt(html,plain)                | alternative(html,plain) P/1 H/0
    alt(plain,related(html,png))   | alternative(plain,related(html,png)) P/0 H/1/0
    related(html,png)              | related(html,png) H/0
    mixed(alt(plain,html),pdf)     | mixed(alternative(plain,html),pdf) P/0/0 H/0/1
    mixed(plain,pdf:attachment)    | mixed(plain,pdf:attachment) P/0
    mixed(html,pdf:attachment)     | mixed(html,pdf:attachment) H/0
    mixed(plain,html)              | mixed(plain,html) P/0 H/1
    signed(alt(plain,html),p7s)    | signed(alternative(plain,html),p7s) P/0/0 H/0/1
    report(plain,delivery)         | report(plain,delivery) P/0
    alt(calendar,html)             | alternative(calendar,html) H/1
    mixed(png:inline,alt(plain))   | mixed(png:inline,alternative(plain)) P/1/0
    mixed(pdf:attachment,plain)    | mixed(pdf:attachment,plain) P/1
    mixed(pdf:attachment)          | mixed(alternative(plain),pdf:attachment) none P/0/0
    mixed(plain:attachment,pdf)    | mixed(alternative(plain),plain:attachment,pdf) none P/0/0
    mixed                          | mixed(alternative(plain),plain) none P/0/0
    png                            | alternative(plain,png) none P/0
    alt(plain[body=<html>x],html)  | alternative(plain,html) H/1
    digest(rfc822)                 | alternative(plain,digest(rfc822)) none P/0)")) {
    LogMemory log;
    const EmailPtr mail = reply(buildTree(before), log);
    std::string found = printTree(mail);
    if (contains(said(log), "This email has no plain-text or HTML body...|")) found += " none";
    for (const bool isHtml : {false, true})
      if (contains(said(log), isHtml ? "Prepending to HTML body|" : "Prepending to plain-text body|"))
        walkTree(*mail, [&](Email2& node) {
          if (!node.m_body.view().starts_with(isHtml ? kHtmlHead : kPlainHead)) return Walk::onward;
          found += (isHtml ? " H" : " P") + pathOf(*mail, &node);
          EXPECT_EQ(node.m_body.view().find("-----Original", 15), node.m_body.view().npos) << before;
          return Walk::onward;
        });
    EXPECT_EQ(found, after);
    EXPECT_EQ(fieldOf(*mail, "X-Priority") + disagreeingFields(*mail), "3 (Normal)") << before;
  }
}

TEST(Reply, page_labelled_as_plain_text_gets_the_html_head) {
  const std::string far(1996, ' ');
  for (const auto& [body, head] : {std::pair<std::string, const char*>("a <HTML lang=en>", kHtmlHead),
                                   {"<BODY>", kHtmlHead},
                                   {"<body class=a>", kHtmlHead},
                                   {"<Html>", kPlainHead},
                                   {far.substr(1) + "<html", kHtmlHead},
                                   {far + "<html", kPlainHead}})
    EXPECT_THAT(quoted("From: a@b.example\n\n" + body), StartsWith(head)) << body.substr(0, 20);
}

TEST(Reply, deliberate_folded_recipients_show_a_break_in_plain_text_too) {
  std::string list;
  for (int i = 0; i < 8; ++i)
    list +=
        (i ? ", Recipient number " : "Recipient number ") + std::to_string(i) + " <recipient@see.example>";
  EXPECT_THAT(quoted("From: a@b.example\nTo: " + list + "\nCc: =?utf-8?Q?J=C3=BCrg?= <j@see.example>\n\nx"),
              AllOf(HasSubstr("<recipient@see.example>,<br> Recipient number 3"),
                    HasSubstr("CC: Jürg <j@see.example>\r\n")));
}

TEST(Reply, text_that_was_ascii_is_labelled_anew_when_its_head_is_not) {
  // The rest of a message, and what of it must be read back.
  for (const auto& [rest, text] : rowsOf<2>(R"(
    Content-Type: text/plain; charset=us-ascii\nContent-Transfer-Encoding: 7bit\n\nHi. | Hi.
    \nHi. | Hi.
    Content-Type: text/plain; charset=iso-8859-1\n\nGr\xFC\xDF | Grüß
    Content-Type: text/plain; charset=iso-8859-1; name=a.txt\n\nGr\xFC\xDF | Grüß
    Content-Type: text/html; charset=iso-8859-1\n\n<head><meta charset=iso-8859-1></head>\xFC | ü)")) {
    const EmailPtr mail = reply(
        load("From: =?utf-8?Q?J=C3=BCrg?= <j@see.example>\nSubject: =?utf-8?B?4oKs?=\nMIME-Version: 1.0\n" +
             rest));
    const std::string written = write(*mail);
    EXPECT_EQ(written.find_first_of("\x80\xC3\xE2\xFC"), std::string::npos) << written;
    EXPECT_THAT(std::string(load(written)->m_body.view()),
                AllOf(HasSubstr("From: Jürg <j@see.example>"), HasSubstr("Subject: €"), HasSubstr(text),
                      Not(HasSubstr("iso-8859-1"))))
        << rest;
  }
}

TEST(Reply, ascii_head_changes_no_label) {
  const EmailPtr mail =
      reply(load("From: a@b.example\nContent-Type: text/plain; charset=us-ascii; format=flowed\n"
                 "Content-Transfer-Encoding: 7bit\n\nHi."));
  EXPECT_EQ(fieldOf(*mail, "Content-Type"), "text/plain; charset=us-ascii; format=flowed");
  EXPECT_EQ(fieldOf(*mail, "Content-Transfer-Encoding"), "7bit");
}

TEST(Reply, deliberate_conversion_stops_half_way_where_there_is_no_body_object) {
  // The text for a message without one goes into the enclosure of a signed part, where no reader looks.
  const EmailPtr mail = buildTree("mixed(pdf:attachment,signed(alt(calendar),p7s))");
  mail->setFromFullUtf8("a@b.example", quiet);
  mail->setHeaderField("Subject", "x", quiet);
  mail->convertToForward(quiet);
  EXPECT_EQ(fieldOf(*mail, "Subject") + fieldOf(*mail, "X-Priority") + fieldOf(*mail, "From"),
            "FW: x(none)a@b.example");
}

TEST(Reply, does_nothing_on_a_dead_node) {
  const EmailPtr mail = buildTree("plain");
  const std::string before = write(*mail);
  LogMemory log;
  {
    const Killed root(*mail);
    mail->convertToReply(log);
    mail->convertToForward(log);
    mail->removeHdrsForwRepl(log);
  }
  EXPECT_EQ(said(log) + write(*mail), before);
}

}  // namespace
}  // namespace mailtree
