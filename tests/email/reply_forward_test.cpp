// Answers to messages and messages passed on: what is quoted where, and what becomes of the header.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

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

constexpr const char* kPlainHead = "-----Original Message-----\r\n";
constexpr const char* kHtmlHead = "<p>-----Original Message-----<br>";
constexpr const char* kNoBody = "This email has no plain-text or HTML body...";

constexpr const char* kFields =
    "From: Anna Berg <anna@berg.example>\nTo: Jo <jo@see.example>\nCc: cy@see.example\n"
    "Date: Sat, 21 Nov 2026 08:30:00 +0100\nSubject: RE: hello\n";

EmailPtr mailOf(const std::string& rest, const std::string& fields = kFields) { return load(fields + rest); }

EmailPtr reply(EmailPtr mail, LogBase& log) {
  mail->convertToReply(log);
  return mail;
}

EmailPtr reply(EmailPtr mail) {
  LogNull log;
  return reply(std::move(mail), log);
}

int occurrences(std::string_view text, std::string_view wanted) {
  int count = 0;
  for (std::size_t at = text.find(wanted); at != std::string_view::npos; at = text.find(wanted, at + 1))
    ++count;
  return count;
}

TEST(Reply, quotes_a_plain_text_behind_its_head) {
  const EmailPtr mail = reply(mailOf("\nSee you there.\n"));
  EXPECT_EQ(mail->m_body.view(),
            "-----Original Message-----\r\nFrom: Anna Berg <anna@berg.example>\r\n"
            "Sent: Sat, 21 Nov 2026 08:30:00 +0100\r\nTo: Jo <jo@see.example>\r\nCC: cy@see.example\r\n"
            "Subject: RE: hello\r\n\r\nSee you there.\n");
}

TEST(Reply, deliberate_html_head_stands_before_the_document_and_is_not_escaped) {
  const EmailPtr mail = reply(mailOf("MIME-Version: 1.0\nContent-Type: text/html\n\n<html><body>Hi"));
  EXPECT_EQ(mail->m_body.view(),
            "<p>-----Original Message-----<br>From: Anna Berg <anna@berg.example><br>"
            "Sent: Sat, 21 Nov 2026 08:30:00 +0100<br>To: Jo <jo@see.example><br>CC: cy@see.example<br>"
            "Subject: RE: hello<p><html><body>Hi");
}

TEST(Reply, and_forward_set_the_header_for_the_caller_to_complete) {
  const std::string fields =
      std::string(kFields) +
      "Received: a\nReceived: b\nDKIM-Signature: c\nX-Spam: d\nReply-To: other@see.example\n"
      "Return-Path: <e@see.example>\nStatus: RO\nBcc: f@see.example\nX-Priority: 1\n"
      "Message-ID: <old@see.example>\nMIME-Version: 1.1\nList-Id: kept\n";
  for (const bool isReply : {true, false}) {
    const EmailPtr mail = mailOf("\ntext", fields);
    LogNull log;
    isReply ? mail->convertToReply(log) : mail->convertToForward(log);
    EXPECT_EQ(fieldOf(*mail, "Subject"), isReply ? "RE: RE: hello" : "FW: RE: hello");
    EXPECT_EQ(fieldOf(*mail, "To"), isReply ? "Anna Berg <anna@berg.example>" : "(none)");
    EXPECT_EQ(mail->getNumRecipients(1), isReply ? 1 : 0);
    EXPECT_EQ(mail->getNumRecipients(2) + mail->getNumRecipients(3), 0);
    for (const char* name : {"From", "Cc", "Bcc", "Reply-To", "Return-Path", "Received", "DKIM-Signature",
                             "X-Spam", "Status", "In-Reply-To", "References"})
      EXPECT_EQ(fieldOf(*mail, name), "(none)") << name;
    EXPECT_TRUE(mail->m_fromAddr.m_address.isEmpty());
    EXPECT_EQ(fieldOf(*mail, "MIME-Version"), "1.0");
    EXPECT_EQ(fieldOf(*mail, "X-Priority"), "3 (Normal)");
    EXPECT_EQ(fieldOf(*mail, "List-Id"), "kept");
    EXPECT_NE(fieldOf(*mail, "Message-ID"), "<old@see.example>");
    EXPECT_NE(fieldOf(*mail, "Date"), "Sat, 21 Nov 2026 08:30:00 +0100");
    EXPECT_EQ(disagreeingFields(*mail), "");
  }
}

TEST(Reply, head_stands_once_in_every_text_and_nowhere_else) {
  const struct {
    const char *before, *after;
    const char *plainAt, *htmlAt;  // where the heads stand
    bool isTextMissing;
  } rows[] = {
      {"plain", "plain", "/", nullptr, false},
      {"html[body=<html>x]", "html", nullptr, "/", false},
      {"html[body=x]", "html", nullptr, "/", false},
      {"none", "plain", "/", nullptr, false},  // a single part without a type is plain text
      {"alt(plain,html)", "alternative(plain,html)", "/0", "/1", false},
      {"alt(html,plain)", "alternative(html,plain)", "/1", "/0", false},
      {"alt(html)", "alternative(html)", nullptr, "/0", false},
      {"alt(plain,related(html,png))", "alternative(plain,related(html,png))", "/0", "/1/0", false},
      {"related(html,png)", "related(html,png)", nullptr, "/0", false},  // one body, reached on both ways
      {"mixed(alt(plain,html),pdf)", "mixed(alternative(plain,html),pdf)", "/0/0", "/0/1", false},
      {"mixed(plain,pdf:attachment)", "mixed(plain,pdf:attachment)", "/0", nullptr, false},
      {"mixed(html,pdf:attachment)", "mixed(html,pdf:attachment)", nullptr, "/0", false},
      {"mixed(plain,html)", "mixed(plain,html)", "/0", "/1", false},
      {"signed(alt(plain,html),p7s)", "signed(alternative(plain,html),p7s)", "/0/0", "/0/1", false},
      {"report(plain,delivery)", "report(plain,delivery)", "/0", nullptr, false},
      {"alt(plain,html,calendar)", "alternative(plain,html,calendar)", "/0", "/1", false},
      {"alt(calendar,html)", "alternative(calendar,html)", nullptr, "/1", false},  // no appointment is broken
      {"mixed(png:inline,alt(plain,html))", "mixed(png:inline,alternative(plain,html))", "/1/0", "/1/1",
       false},
      {"mixed(pdf:attachment,plain)", "mixed(pdf:attachment,plain)", "/1", nullptr, false},
      {"mixed(pdf:attachment)", "mixed(alternative(plain),pdf:attachment)", "/0/0", nullptr, true},
      {"mixed(plain:attachment,pdf)", "mixed(alternative(plain),plain:attachment,pdf)", "/0/0", nullptr,
       true},
      {"mixed", "mixed(alternative(plain),plain)", "/0/0", nullptr, true},  // its bytes are kept
      {"png", "alternative(plain,png)", "/0", nullptr, true},
      {"digest(rfc822)", "alternative(plain,digest(rfc822))", "/0", nullptr, true},
  };
  for (const auto& row : rows) {
    LogMemory log;
    const EmailPtr mail = reply(buildTree(row.before), log);
    EXPECT_EQ(printTree(mail), row.after) << row.before;
    for (const auto& [at, head] : {std::pair{row.plainAt, kPlainHead}, std::pair{row.htmlAt, kHtmlHead}})
      EXPECT_TRUE(!at || nodeAt(*mail, at)->m_body.view().starts_with(head)) << row.before;
    EXPECT_EQ(log.text().find("Prepending to plain-text body") != std::string::npos, row.plainAt != nullptr)
        << row.before;
    EXPECT_EQ(log.text().find("Prepending to HTML body") != std::string::npos, row.htmlAt != nullptr)
        << row.before;
    EXPECT_EQ(log.text().find(kNoBody) != std::string::npos, row.isTextMissing) << row.before;
    for (Email2* part : {mail->getPlainTextAlternative(), mail->getHtmlAlternative()})
      EXPECT_TRUE(!part || occurrences(part->m_body.view(), "-----Original") == 1) << row.before;
    EXPECT_EQ(fieldOf(*mail, "X-Priority"), "3 (Normal)") << row.before;
    EXPECT_EQ(disagreeingFields(*mail), "") << row.before;
  }
}

TEST(Reply, page_labelled_as_plain_text_gets_the_html_head) {
  const std::string far(1996, ' ');
  const struct {
    std::string body;
    const char* head;
  } rows[] = {
      {"<html>x", kHtmlHead},
      {"a <HTML lang=en>", kHtmlHead},
      {"<BODY>", kHtmlHead},
      {"<body class=a>", kHtmlHead},
      {"<Html>", kPlainHead},
      {"<p>x</p>", kPlainHead},
      {far.substr(1) + "<html", kHtmlHead},
      {far + "<html", kPlainHead},
  };
  for (const auto& row : rows) {
    EmailPtr mail = buildTree("plain");
    mail->m_body.clear();
    mail->m_body.append(std::string_view(row.body));
    EXPECT_THAT(std::string(reply(std::move(mail))->m_body.view()), StartsWith(row.head))
        << row.body.substr(0, 20);
  }
}

TEST(Reply, page_labelled_as_plain_text_beside_a_page_gets_no_head) {
  const EmailPtr mail = reply(buildTree("alt(plain[body=<html>x],html)"));
  EXPECT_EQ(nodeAt(*mail, "/0")->m_body.view(), "<html>x");
  EXPECT_THAT(std::string(nodeAt(*mail, "/1")->m_body.view()), StartsWith(kHtmlHead));
}

TEST(Reply, head_names_only_the_recipients_there_are) {
  const EmailPtr mail = reply(mailOf("\nx", "From: a@b.example\n"));
  EXPECT_EQ(mail->m_body.view(),
            "-----Original Message-----\r\nFrom: a@b.example\r\nSent: \r\nSubject: \r\n\r\nx");
  EXPECT_EQ(fieldOf(*mail, "Subject"), "RE: ");
}

TEST(Reply, deliberate_folded_recipients_show_a_break_in_plain_text_too) {
  std::string list;
  for (int i = 0; i < 8; ++i)
    list += (i ? ", " : "") + ("Recipient number " + std::to_string(i)) + " <recipient" + std::to_string(i) +
            "@see.example>";
  const EmailPtr mail = reply(
      mailOf("\nx", "From: a@b.example\nTo: " + list + "\nCc: =?utf-8?Q?J=C3=BCrg?= <j@see.example>\n"));
  const std::string body(mail->m_body.view());
  EXPECT_THAT(body, HasSubstr("<recipient2@see.example>,<br> Recipient number 3"));
  EXPECT_THAT(body, HasSubstr("CC: Jürg <j@see.example>\r\n"));
}

TEST(Reply, text_that_was_ascii_is_labelled_anew_when_its_head_is_not) {
  const std::string fields =
      "From: =?utf-8?Q?J=C3=BCrg?= <j@see.example>\nSubject: =?utf-8?B?4oKs?=\nMIME-Version: 1.0\n";
  const struct {
    const char* rest;
    const char* quoted;  // what else must be read back
  } rows[] = {
      {"Content-Type: text/plain; charset=us-ascii\nContent-Transfer-Encoding: 7bit\n\nHi.", "Hi."},
      {"\nHi.", "Hi."},
      {"Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: 8bit\n\nGr\xFC\xDF", "Grüß"},
      {"Content-Type: text/plain; charset=iso-8859-1; name=a.txt\nContent-Transfer-Encoding: "
       "8bit\n\nGr\xFC\xDF",
       "Grüß"},
      {"Content-Type: text/html; charset=iso-8859-1\nContent-Transfer-Encoding: 8bit\n\n<html><head>"
       "<meta charset=iso-8859-1></head>Gr\xFC\xDF",
       "Grüß"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = reply(mailOf(row.rest, fields));
    const std::string written = write(*mail);
    EXPECT_EQ(written.find_first_of("\x80\xC3\xE2\xFC"), std::string::npos) << written;
    const EmailPtr again = load(written);
    const std::string body(again->m_body.view());
    EXPECT_THAT(body, HasSubstr("From: Jürg <j@see.example>")) << row.rest;
    EXPECT_THAT(body, HasSubstr("Subject: €")) << row.rest;
    EXPECT_THAT(body, HasSubstr(row.quoted)) << row.rest;
    EXPECT_THAT(body, Not(HasSubstr("iso-8859-1"))) << row.rest;
  }
}

TEST(Reply, ascii_head_changes_no_label) {
  const EmailPtr mail =
      reply(mailOf("MIME-Version: 1.0\nContent-Type: text/plain; charset=us-ascii; format=flowed\n"
                   "Content-Transfer-Encoding: 7bit\n\nHi."));
  EXPECT_EQ(fieldOf(*mail, "Content-Type"), "text/plain; charset=us-ascii; format=flowed");
  EXPECT_EQ(fieldOf(*mail, "Content-Transfer-Encoding"), "7bit");
}

TEST(Reply, deliberate_conversion_stops_half_way_where_there_is_no_body_object) {
  // The text for a message without one goes into the enclosure of a signed part, where no reader looks for it.
  const EmailPtr mail = buildTree("mixed(pdf:attachment,signed(alt(calendar),p7s))");
  LogNull quiet;
  mail->setFromFullUtf8("a@b.example", quiet);
  mail->setHeaderField("Subject", "x", quiet);
  LogMemory log;
  mail->convertToForward(log);
  EXPECT_EQ(fieldOf(*mail, "Subject"), "FW: x");
  EXPECT_EQ(fieldOf(*mail, "X-Priority"), "(none)");
  EXPECT_EQ(fieldOf(*mail, "From"), "a@b.example");
}

TEST(Reply, does_nothing_on_a_dead_node) {
  const EmailPtr mail = buildTree("plain");
  const std::string before = writtenHeader(*mail);
  LogMemory log;
  {
    const Killed root(*mail);
    mail->convertToReply(log);
    mail->convertToForward(log);
    mail->removeHdrsForwRepl(log);
  }
  EXPECT_EQ(countMessages(log), 0);
  EXPECT_EQ(writtenHeader(*mail), before);
}

}  // namespace
}  // namespace mailtree
