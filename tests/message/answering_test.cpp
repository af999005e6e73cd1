// An answer is a new message: who gets it, what it is about, what it quotes, and what must not travel along.
#include <gtest/gtest.h>

#include <algorithm>

#include "mailtree/mailtree.h"
#include "mailtree/message/answer_subject.h"
#include "mailtree/message/quoting.h"
#include "mailtree/mime/html/HtmlFrame.h"

namespace mailtree {
namespace {

const Address kJo{"Jo", "jo@see.example"};

Message parsed(const std::string& text) { return Message::parse(text).value(); }

std::string textOf(const std::vector<Address>& addresses) {
  std::string text;
  for (const Address& each : addresses) text += (text.empty() ? "" : ", ") + each.text();
  return text;
}

TEST(Answering, GivesTheSubjectOneMark) {
  const struct {
    const char *subject, *answer;
  } rows[] = {
      {"Regatta", "Re: Regatta"},
      {"Re: AW: Antw: sv : RES:Regatta", "Re: Regatta"},
      {"RE[2]: Re(3): re^4: Regatta", "Re: Regatta"},
      {"回复：答复: Fwd: WG: 转发：船", "Re: 船"},
      {"RE\u00A0: R: [Fwd: Regatta]", "Re: Regatta"},
      {"[boats] Re: [boats] AW: [race] Regatta", "Re: [boats] [race] Regatta"},
      {"Ref: 12", "Re: Ref: 12"},
      {"Results: 12", "Re: Results: 12"},  // not the mark "Res"
      {"[1] note: Re", "Re: [1] note: Re"},
      {" Re: ", "Re:"},
      {"", "Re:"},
  };
  for (const auto& row : rows) EXPECT_EQ(answerSubject("Re: ", row.subject), row.answer) << row.subject;
}

TEST(Answering, ChoosesTheRecipients) {
  const ReplyOptions one{.from = kJo}, all{.from = kJo, .all = true, .own = {{"", "j@WORK.example"}}},
      list{.from = kJo, .list = true},
      more{.from = kJo, .to = {{"", "x@x"}}, .cc = {{"", "A@x"}, {"", "a@X"}}};
  const std::string copies = "To: jo@SEE.example, B <b@x>, c@x\nCc: b@X, d@x, j@work.example, Nobody\n";
  const struct {
    const ReplyOptions& options;
    std::string header;
    const char* recipients;  // To | Cc
  } rows[] = {
      {one, "From: a@x\nSubject: =?utf-8?Q?a=0D=0Ab?=\n", "a@x |"},  // cannot be written as it is
      {one, "From: A <a@x>, s@x\nSender: t@x\n" + copies, "A <a@x>, s@x |"},
      {one, "From: a@x\nReply-To: r@x, q@x\n", "r@x, q@x |"},
      {one, "From: a@x\nReply-To: undisclosed:;\n", "a@x |"},
      {all, "From: A <a@x>\n" + copies, "A <a@x>, B <b@x>, c@x | d@x"},
      {all, "From: B <b@x>\nReply-To: r@x\n" + copies, "r@x, B <b@x>, c@x | d@x"},
      {one, "From: Jo <jo@see.EXAMPLE>\n" + copies, "B <b@x>, c@x |"},  // one's own message
      {all, "From: j@work.example\nReply-To: r@x\n" + copies, "B <b@x>, c@x | d@x"},
      {one, "From: jo@see.example\nTo: jo@see.example\n", "jo@see.example |"},
      {list, "From: a@x\nList-Post: (all) <https://x/y>, <mailto:boats%2Brace@x?subject=z>\n",
       "boats+race@x |"},
      {list, "From: a@x\nList-Post: NO\n", "! List-Post"},
      {one, "To: b@x\n", "! From"},
      {one, "From: =?utf-8?Q?a=40x=0D=0AX-Y:_z?= <nobody>\n", "! From"},
      {one, "From: =?utf-8?Q?A=0D=0AX-Y:_z?= <a@x>\n", "\"A  X-Y: z\" <a@x> |"},
      {more, "From: a@x\n", "a@x, x@x |"},
      {more, "", "x@x | A@x"},
  };
  for (const auto& row : rows) {
    const Result<Message> answer = parsed(row.header + "\nText\n").reply(row.options);
    const std::string found =
        !answer ? "! " + answer.error().where : textOf(answer->to()) + " | " + textOf(answer->cc());
    EXPECT_EQ(found.substr(0, found.find_last_not_of(' ') + 1), row.recipients) << row.header;
    EXPECT_TRUE(answer || answer.error().code == ErrorCode::noRecipient) << row.header;
  }
  EXPECT_EQ(parsed("From: a@x\n\n").reply({}).error().code, ErrorCode::badValue);
}

TEST(Answering, ContinuesTheConversation) {
  const struct {
    const char *header, *references;
  } rows[] = {
      {"Message-ID: <3@x>\nReferences: <1@x>\n <2@x>\n", "1@x 2@x 3@x"},
      {"Message-ID: <3@x>\nIn-Reply-To: <1@x>\n", "1@x 3@x"},
      {"Message-ID: <3@x>\nIn-Reply-To: <1@x> <2@x>\n", "3@x"},
      {"Message-ID: <3@x>\nReferences: <3@x> <2@x>\n", "2@x 3@x"},
      {"References: <1@x>\n", "1@x"},
      {"", ""},
  };
  for (const auto& row : rows) {
    const Message answer =
        parsed(std::string("From: a@x\n") + row.header + "\nText\n").reply({.from = kJo}).value();
    std::string references;
    for (const std::string& id : answer.references()) references += (references.empty() ? "" : " ") + id;
    EXPECT_EQ(references, row.references) << row.header;
    EXPECT_EQ(answer.inReplyTo(), answer.references().empty() || row.header[0] == 'R' ? "" : "3@x")
        << row.header;
  }
}

TEST(Answering, TakesNoFieldOfTheOldHeaderAlong) {
  std::string header = "From: a@x\nTo: jo@see.example\nSubject: s\nMessage-ID: <1@x>\n";
  for (const char* name :
       {"Sender", "Delivered-To", "Return-Path", "Received", "Authentication-Results", "ARC-Seal",
        "Auto-Submitted", "List-Unsubscribe", "List-ID", "DKIM-Signature", "Reply-To", "Bcc",
        "Disposition-Notification-To", "Return-Receipt-To", "Resent-To", "X-Spam", "Organization"})
    header += std::string(name) + ": <old@x>\n";
  const Message mail = parsed(header + "\nText\n");
  const ForwardOptions to{.from = kJo, .to = {kJo}};
  for (const Message& answer : {mail.reply({.from = kJo, .all = true}).value(), mail.forward(to).value()})
    for (const Header& field : parsed(answer.toString().value()).headers()) {
      const char* const kNew[] = {
          "MIME-Version", "Date", "Message-ID", "Content-Type", "Content-Transfer-Encoding",
          "X-Priority",   "From", "To",         "Subject",      "In-Reply-To",
          "References"};
      EXPECT_TRUE(std::ranges::find(kNew, field.name) != std::end(kNew)) << field.name;
    }
}

TEST(Answering, QuotesLines) {
  const struct {
    const char *text, *quoted;
  } rows[] = {
      {"a\n\n> b\n>> c\n>d\n", "> a\n>\n>> b\n>>> c\n>> d\n"},
      {"> > b\n> >= 5\n>\n", ">>> b\n>> >= 5\n>>\n"},
      {" indented", ">  indented\n"},
      {"", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(quotedLines(row.text), row.quoted) << row.text;
}

TEST(Answering, FramesPages) {
  const struct {
    const char *html, *framed;
  } rows[] = {
      {"<p>a", "<html><head></head><body>[<p>a]</body></html>"},
      {"<!DOCTYPE html><HTML a><head><style>s</style></head><body b>c</body></HTML>\n<div>d</div>",
       "<!DOCTYPE html><HTML a><head><style>s</style></head><body b>[c\n<div>d</div>]</body></html>"},
      {"<i>1</i><html><head><title>t</title></head><body>2</body></html><html><head><meta n></head><body>3",
       "<html><head><title>t</title><meta n></head><body>[<i>1</i>23]</body></html>"},
      {"<blockquote>a</blockquote></blockquote>b",
       "<html><head></head><body>[<blockquote>a</blockquote>b]</body></html>"},
      {"<head><script>a<b</script></head><p ONclick='x' id=\"i\" a=b>c<script>d",
       "<html><head></head><body>[<p id=\"i\" a=\"b\">c]</body></html>"},
      {"<head><style>a{}", "<html><head></head><body>[<style>a{}]</body></html>"},  // would swallow the body
  };
  for (const auto& row : rows) EXPECT_EQ(frameHtml(row.html, "[", "]"), row.framed);
}

TEST(Answering, LeavesAloneWhatNoProgramMayAnswer) {
  const ReplyOptions automatic{.from = kJo, .automatic = true};
  for (const char* header :
       {"Auto-Submitted: auto-generated; x=y\n", "Precedence: Bulk\n", "List-Id: <l@x>\n",
        "Return-Path: <>\n", "Content-Type: multipart/report; boundary=b\n",
        "Content-Type: message/delivery-status\n", "Sender: boats-request@x\n"})
    EXPECT_EQ(parsed(std::string("From: a@x\n") + header + "\n").reply(automatic).error().code,
              ErrorCode::automatic)
        << header;
  EXPECT_TRUE(parsed("From: Mailer-Daemon@x\n\n").isAutomatic());
  const Message mail =
      parsed("From: a@x\nReturn-Path: <a@x>\nAuto-Submitted: no (really)\nPrecedence: high\n\n");
  const Message answer = parsed(mail.reply(automatic).value().toString().value());
  EXPECT_TRUE(answer.isAutomatic());
  EXPECT_EQ(answer.envelope().sender, "");
  EXPECT_TRUE(answer.check());
}

const char* const kPage =
    "From: =?utf-8?Q?A_=3Cb=3E?= <a@x>\nDate: Sun, 22 Nov 2026 12:00:00 +0100\nSubject: <s>\nMIME-Version: "
    "1.0\n"
    "Content-Type: multipart/mixed; boundary=m\n\n--m\nContent-Type: multipart/related; boundary=r\n\n"
    "--r\nContent-Type: text/html; charset=utf-8\n\n<html><body><p>G\xC3\xBC\xC3\x9F\x65</p><img "
    "src=\"cid:i\"></body></html>\n"
    "--r\nContent-Type: image/png\nContent-ID: <i>\nX-Trace: t\n\nPNG\n--r--\n"
    "--m\nContent-Type: text/calendar; method=REQUEST\n\nBEGIN:VCALENDAR\n"
    "--m\nContent-Type: message/rfc822\nContent-Transfer-Encoding: "
    "base64\n\nU3ViamVjdDogaW4KCnRleHQK\n--m--\n";

TEST(Answering, QuotesWhatAReaderSees) {
  const Message mail = parsed(kPage);
  const Message reply = parsed(mail.reply({.from = kJo, .text = "1 < 2\n\nJo"}).value().toString().value());
  EXPECT_EQ(reply.text(), "1 < 2\n\nJo\n\nOn Sun, 22 Nov 2026 at 12:00, A <b> wrote:\n> G\u00FC\u00DFe\n");
  EXPECT_NE(reply.html().find(
                "<body><p>1 &lt; 2</p>\n<p>Jo</p>\n<p>On Sun, 22 Nov 2026 at 12:00, A &lt;b&gt; wrote:"
                "</p>\n<blockquote type=\"cite\"><p>G\u00FC\u00DFe</p>"),
            std::string::npos)
      << reply.html();
  ASSERT_EQ(reply.inlineItems().size(), 1u);
  EXPECT_EQ(reply.inlineItems()[0].header("X-Trace"), std::nullopt);
  EXPECT_TRUE(reply.attachments().empty());
  const Message forward = parsed(mail.forward({.from = kJo, .to = {kJo}}).value().toString().value());
  EXPECT_NE(forward.html().find("From: &quot;A &lt;b&gt;&quot; &lt;a@x&gt;<br>"), std::string::npos)
      << forward.html();
  ASSERT_EQ(forward.attachments().size(), 2u);
  EXPECT_EQ(forward.attachments()[0].header("Content-Type"), "text/calendar; method=REQUEST");
  EXPECT_EQ(forward.attachments()[1].encoding(), "");  // never base64 (RFC 2046, 5.2.1)
  const Message plain = parsed("From: a@x\n\nHi\n> you\n-- \nA\n").reply({.from = kJo}).value();
  EXPECT_EQ(plain.text(), "a@x wrote:\n> Hi\n>> you\n");
  // A signature ends its own part only, and one without a text before it is the text.
  const Message parts = parsed(
      "From: a@x\nContent-Type: multipart/mixed; boundary=m\n\n--m\n\n1\n-- \nA\n--m\n\n-- \n2\n--m--\n");
  EXPECT_EQ(parts.reply({.from = kJo})->text(), "a@x wrote:\n> 1\n>\n> -- \n> 2\n");
  EXPECT_EQ(plain.html(), "");
  EXPECT_EQ(plain.root().header("Content-Type"), "text/plain; charset=us-ascii; format=flowed");
}

TEST(Answering, SendsTheWholeMessageAsItCame) {
  const std::string old =
      "Received: x\r\nSubject:  =?utf-8?q?a?=\r\nBcc: b@x\r\nContent-Transfer-Encoding: "
      "base64\r\n\r\nAA\r\nAA==\r\n";
  const ResendOptions to{.from = kJo, .to = {{"Ann", "a@x"}}, .bcc = {{"", "c@x"}}};
  for (const std::string& before :
       {std::string(), std::string("From a@x Sun Nov 22\r\n"), std::string("\r\n")}) {
    const Message resent = parsed(before + old).resend(to).value();
    const std::string text = resent.toString({.bcc = true}).value();
    EXPECT_TRUE(text.ends_with("\r\n" + old)) << text;
    EXPECT_EQ(resent.header("Resent-To"), "Ann <a@x>");
    EXPECT_EQ(resent.envelope().recipients, (std::vector<std::string>{"a@x", "c@x"}));
    EXPECT_EQ(resent.toString().value().find("cc:"), std::string::npos);
  }
  const Message forward =
      parsed(old).forward({.from = kJo, .to = {kJo}, .text = "FYI", .asAttachment = true}).value();
  EXPECT_NE(forward.toString().value().find("\r\n\r\n" + old), std::string::npos)
      << forward.toString().value();
  EXPECT_EQ(parsed(old).resend({.from = kJo}).error().code, ErrorCode::noRecipient);
  EXPECT_EQ(parsed(old).resend({.from = kJo, .cc = {{"", "x y"}}}).error().code, ErrorCode::badValue);
}

}  // namespace
}  // namespace mailtree
