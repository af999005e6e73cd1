// Answers to messages and messages passed on; clean-ups; a tree as an XML document and as a web archive.
#include "mailtree/base/Xml.h"
#include "mailtree/email/internal.h"
#include "tests/email/cases.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace std::string_literals;

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

TEST(Reply, quotes_a_text_below_its_reply_header) {
  EXPECT_EQ(quoted(kFields + "\nSee you there.\n"),
            "-----Original Message-----\r\nFrom: Anna Berg <anna@berg.example>\r\n"
            "Sent: Sat, 21 Nov 2026 08:30:00 +0100\r\nTo: Jo <jo@see.example>\r\nCC: cy@see.example\r\n"
            "Subject: RE: hello\r\n\r\nSee you there.\n");
  // Deliberate: the HTML reply header is before the document and is not escaped.
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

TEST(Reply, head_is_once_in_every_text_and_nowhere_else) {
  // The tree, and where a Plain or HTML reply header is. A single part without a type is plain text, the
  // bytes of a multipart without parts are kept, and no appointment is broken.
  for (const auto& [before, after] : rowsOf<2>(R"(
    plain | plain P/                                    || html[body=<html>x] | html H/
    none | plain P/                                     || alt(html,plain) | alternative(html,plain) P/1 H/0
    alt(plain,related(html,png)) | alternative(plain,related(html,png)) P/0 H/1/0
    related(html,png) | related(html,png) H/0
    mixed(alt(plain,html),pdf) | mixed(alternative(plain,html),pdf) P/0/0 H/0/1
    mixed(plain,pdf:attachment) | mixed(plain,pdf:attachment) P/0
    mixed(html,pdf:attachment) | mixed(html,pdf:attachment) H/0
    mixed(plain,html) | mixed(plain,html) P/0 H/1
    signed(alt(plain,html),p7s) | signed(alternative(plain,html),p7s) P/0/0 H/0/1
    report(plain,delivery) | report(plain,delivery) P/0 || alt(calendar,html) | alternative(calendar,html) H/1
    mixed(png:inline,alt(plain)) | mixed(png:inline,alternative(plain)) P/1/0
    mixed(pdf:attachment,plain) | mixed(pdf:attachment,plain) P/1
    mixed(pdf:attachment) | mixed(alternative(plain),pdf:attachment) none P/0/0
    mixed(plain:attachment,pdf) | mixed(alternative(plain),plain:attachment,pdf) none P/0/0
    mixed | mixed(alternative(plain),plain) none P/0/0  || png | alternative(plain,png) none P/0
    alt(plain[body=<html>x],html) | alternative(plain,html) H/1
    digest(rfc822) | alternative(plain,digest(rfc822)) none P/0)")) {
    LogMemory log;
    const EmailPtr mail = reply(buildTree(before), log);
    std::string found = printTree(mail);
    if (contains(said(log), "This email has no plain-text or HTML body...|")) found += " none";
    for (const bool isHtml : {false, true})
      if (contains(said(log), isHtml ? "Prepending to HTML body|" : "Prepending to plain-text body|"))
        walkTree(*mail, [&, row = before](Email2& node) {
          if (!node.m_body.view().starts_with(isHtml ? kHtmlHead : kPlainHead)) return Walk::descend;
          found += (isHtml ? " H" : " P") + pathOf(*mail, &node);
          EXPECT_EQ(node.m_body.view().find("-----Original", 15), node.m_body.view().npos) << row;
          return Walk::descend;
        });
    EXPECT_EQ(found, after);
    EXPECT_EQ(fieldOf(*mail, "X-Priority") + disagreeingFields(*mail), "3 (Normal)") << before;
  }
}

TEST(Reply, html_labelled_as_plain_text_gets_the_html_reply_header) {
  const std::string far(1996, ' '), mail = "From: a@b.example\n\n";
  for (const std::string& page : {"a <HTML lang=en>"s, "<BODY>"s, "<body class=a>"s, far.substr(1) + "<html"})
    EXPECT_THAT(quoted(mail + page), StartsWith(kHtmlHead)) << page;
  for (const std::string& text : {"<Html>"s, far + "<html"})
    EXPECT_THAT(quoted(mail + text), StartsWith(kPlainHead)) << text;
}

TEST(Reply, deliberate_folded_recipients_show_a_break_in_plain_text_too) {
  std::string list = "A <a@see.example>";
  for (int i = 0; i < 8; ++i) list += ", Recipient number " + std::to_string(i) + " <r@see.example>";
  EXPECT_THAT(quoted("From: a@b.example\nTo: " + list + "\nCc: =?utf-8?Q?J=C3=BCrg?= <j@see.example>\n\nx"),
              AllOf(HasSubstr(", Recipient number 1<br> <r@see.example>, Rec"),
                    HasSubstr("CC: Jürg <j@see.example>\r\n")));
}

TEST(Reply, text_that_was_ascii_is_labelled_anew_when_its_reply_header_is_not) {
  // The rest of a message, and what of it must be read back.
  for (const auto& [rest, text] : rowsOf<2>(R"(
    Content-Type: text/plain; charset=us-ascii\nContent-Transfer-Encoding: 7bit\n\nHi. | Hi. || \nHi. | Hi.
    Content-Type: text/plain; charset=iso-8859-1\n\nGr\xFC\xDF | Grüß
    Content-Type: text/plain; charset=iso-8859-1; name=a.txt\n\nGr\xFC\xDF | Grüß
    Content-Type: text/html; charset=iso-8859-1\n\n<head><meta charset=iso-8859-1></head>\xFC | ü)")) {
    const std::string written = write(*reply(
        load("From: =?utf-8?Q?J=C3=BCrg?= <j@see.example>\nSubject: =?utf-8?B?4oKs?=\nMIME-Version: 1.0\n" +
             rest)));
    EXPECT_EQ(written.find_first_of("\x80\xC3\xE2\xFC"), std::string::npos) << written;
    EXPECT_THAT(std::string(load(written)->m_body.view()),
                AllOf(HasSubstr("From: Jürg <j@see.example>"), HasSubstr("Subject: €"), HasSubstr(text),
                      Not(HasSubstr("iso-8859-1"))));
  }
}

TEST(Reply, ascii_reply_header_changes_no_label) {
  const std::string label =
      "Content-Type: text/plain; charset=us-ascii; format=flowed\nContent-Transfer-Encoding: 7bit\n";
  EXPECT_THAT(fieldLines(*reply(load("From: a@b.example\n" + label + "\nHi."))), HasSubstr(label));
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

TEST(Tidy, plain_text_at_the_head_of_a_mixed_moves_into_a_new_alternative) {
  // Deliberate: nobody asks whether the text is an attached file.
  for (const auto& [before, after, logged] : rowsOf<3>(R"(
    multipart/x-mixed-replace(plain) | multipart/x-mixed-replace(alternative(plain)) | sbCt=text/plain
    mixed(plain:attachment,pdf) | mixed(alternative(plain:attachment),pdf) | sbCt=text/plain
    mixed(pdf,plain) | mixed(pdf,plain) | sbCt=application/pdf
    mixed(plain,alt(html)) | mixed(plain,alternative(html)) | || mixed | mixed |
    related(plain,png) | related(plain,png) |)")) {
    const EmailPtr mail = buildTree(before);
    LogMemory log;
    mail->moveMtMixedPlainTextToAlt(log);
    EXPECT_EQ(printTree(mail), after) << before;
    EXPECT_EQ(log.entries()[0].text + " " + said(log),
              "moveMtMixedPlainTextToAlt " + (logged.empty() ? "" : logged + "|"));
  }
  const EmailPtr mail = buildTree("mixed(plain,pdf)");
  mail->getPart(0)->fixContentTypeUtf8("Text/Plain", quiet);
  mail->moveMtMixedPlainTextToAlt(quiet);
  EXPECT_EQ(mail->getNumParts(), 2) << "deliberately compared with regard to case";
}

TEST(Tidy, first_html_moves_to_the_end_of_the_other_enclosure) {
  for (const auto& [from, to, after] : rowsOf<3>(R"(
    mixed(plain,html,html[name=2]) | related(png) | mixed(plain,html[name=2]) related(png,html)
    mixed(alt(html),plain)         | related(png) | mixed(alternative(html),plain) related(png)
    html                           | related      | html related)")) {
    const EmailPtr source = buildTree(from), target = buildTree(to);
    Email2::checkMoveHtmlToRelated(*source, *target, quiet);
    EXPECT_EQ(printTree(source, TreeDetail::names) + " " + printTree(target), after);
  }
  const EmailPtr from = buildTree("mixed(html[body=dead],html[name=live])"), to = buildTree("related");
  const Killed first(*from->getPart(0));
  Email2::checkMoveHtmlToRelated(*from, *to, quiet);
  EXPECT_EQ(printTree(to, TreeDetail::names), "related(html[name=live])");
}

TEST(Tidy, bodies_get_an_encoding_that_survives_transport) {
  // HTML always. The text of an attached file is written as it is, so never as 7bit.
  for (const auto& [part, codePage, encoding] : rowsOf<3>(R"(
    plain[enc=7bit,body=ä] | 65001 | quoted-printable || plain[enc=7bit,body=ä] | 932 | base64
    plain[enc=7bit,body=ä] | 0 | quoted-printable     || plain[enc=7bit,body=a] | 65001 | 7bit
    plain[enc=8bit,body=a] | 65001 | quoted-printable || plain[enc=Binary,body=a] | 0 | quoted-printable
    plain[enc=8bit,body=a] | 20127 | 7bit      || plain[enc=8bit,body=ä]:attachment | 20127 | quoted-printable
    plain[enc=Base64,body=ä] | 65001 | Base64   || plain[enc=Quoted-Printable,body=ä] | 932 | Quoted-Printable
    none[enc=7bit,body=ä] | 65001 | quoted-printable  || html[enc=7bit,body=a] | 65001 | quoted-printable
    html[enc=8bit,body=ä] | 20127 | 8bit              || png[enc=binary] | 65001 | base64
    png[enc=8bit,body=ä] | 65001 | 8bit               || rfc822[enc=8bit,body=ä] | 65001 | 8bit
    mixed[enc=binary](plain) | 65001 | binary       || multipart/unheard[enc=8bit,body=ä] | 65001 | 8bit)")) {
    const EmailPtr mail = buildTree("mixed(plain,related(html," + part + "))");
    if (codePage != "0") mail->use_codepage(std::stoi(codePage));
    mail->safeguardBodies(quiet);
    const Email2& safe = *nodeAt(*mail, "/1/1");
    EXPECT_EQ(safe.m_transferEncoding.getString() + disagreeingFields(safe), encoding) << part;
  }
}

TEST(Tidy, file_names_lose_their_directories) {
  // The slash of a base64 word is a letter.
  for (const auto& [fields, disposition, name] : rowsOf<3>(R"(
    ; name="C:\b\a.png"\nContent-Disposition: attachment; filename="/tmp/b" | attachment; filename="b" | a.png
    ; name="pics/a.png"\nContent-Disposition: inline | inline; filename="a.png" | a.png
    ; name="pics/a.png" | (none) | a.png
    \nContent-Disposition: attachment; filename="a.png"; size=4 | attachment; filename="a.png"; size=4 |
    ; name="x/"\nContent-Disposition: attachment; filename="x/" | attachment |
    \nContent-Location: http://example.com/a.png | (none) | || ; name="=?utf-8?B?w7/Dvw==?=" | (none) | ÿÿ
    ; name="=?utf-8?Q?dir=2Fa=C3=A4?=" | (none) | aä)")) {
    const EmailPtr mail =
        load("Content-Type: multipart/mixed; boundary=b\n\n--b\n\ntext\n--b\nContent-Type: image/png" +
             fields + "\nContent-Transfer-Encoding: base64\n\nAAAA\n--b--\n");
    mail->removeAttachmentPaths(quiet);
    const EmailPtr again = load(write(*mail));
    for (Email2* root : {mail.get(), again.get()}) {
      EXPECT_EQ(fieldOf(*root->getPart(1), "Content-Disposition"), disposition) << fields;
      EXPECT_EQ(root->getPart(1)->m_contentType.m_name.view(), name) << fields;
    }
  }
}

TEST(Tidy, html_body_is_replaced_by_its_cleaned_form) {
  for (const auto& [tree, after] : rowsOf<2>(R"(
    mixed(alt(plain,related(html[body=a<!-- -->b],png))) | mixed(alternative(plain,related(html,png)))ab
    html[body=vi<!-- -->agra] | htmlviagra || plain[body=vi<!-- -->agra] | plain
    html[body=] | html)")) {
    const EmailPtr mail = buildTree(tree);
    const std::string before = write(*mail);
    mail->unSpamify(quiet);
    StringBuffer html;
    mail->getHtmlBodyUtf8(*mail, html, quiet);
    EXPECT_EQ(printTree(mail) + html.getString(), after) << tree;
    EXPECT_EQ(write(*mail) == before, html.isEmpty()) << tree;
  }
}

std::string xmlOf(Email2& mail) {
  StringBuffer out;
  EXPECT_TRUE(mail.getEmailXml(/*compact=*/true, out, quiet));
  return out.extractString();
}

int count(std::string_view text, std::string_view wanted) {
  int n = 0;
  for (std::size_t at = 0; (at = text.find(wanted, at)) != text.npos; at += wanted.size()) ++n;
  return n;
}

TEST(EmailXml, header_fields_become_elements) {
  for (const auto& [fields, xml] : rowsOf<2>(R"(
    Subject: =?utf-8?Q?Gr=C3=BC=C3=9Fe?= & <more> | <subject>Grüße &amp; &lt;more&gt;</subject>
    X-Odd(name)/1: v | <x-odd-name--1>v</x-odd-name--1> || 3Com: v | <_3com>v</_3com>
    To: =?utf-8?Q?=C3=B6?= <j@x>,\n b@y | <to><addr>j@x</addr><name>ö</name><addr>b@y</addr><name/></to>
    To: undisclosed-recipients:; | <to>undisclosed-recipients:;</to>
    Return-Path: <a@b> | <return-path><addr>a@b</addr><name/></return-path>
    Received: a\nReceived: b | <received>a</received><received>b</received>
    SVZ-Size: 12\nSubject: s | <subject>s</subject>
    Subject: a\x01\x62\x1B | <subject>a\xEF\xBF\xBDb\xEF\xBF\xBD</subject>
    Bcc: A <a@x>\nX: t\nBcc:b@x | <bcc><addr>a@x</addr><name>A</name><addr>b@x</addr><name/></bcc><x>t</x>)"))
    EXPECT_THAT(xmlOf(*load(crlf(fields + "\n\nx"))), HasSubstr("<mime_message>" + xml + "<body><!["));
}

TEST(EmailXml, a_bcc_is_shown_once_wherever_it_came_from) {
  Email2 composed;
  composed.addRecipient(3, "A", "a@x", quiet);
  composed.removeHeaderField("Bcc");
  EXPECT_THAT(xmlOf(composed), HasSubstr("<bcc><addr>a@x</addr><name>A</name></bcc><body"));
}

TEST(EmailXml, mirrors_the_tree) {
  const std::string field = "<content-transfer-encoding>7bit</content-transfer-encoding>";
  const std::string part =
      "<subpart><mime_message>" + field + "<body><![CDATA[x]]></body></mime_message></subpart>";
  for (const auto& [tree, body] : {std::pair<std::string, std::string>("plain[body=]", "<body/>"),
                                   {"plain[body=a<b]", "<body><![CDATA[a<b]]></body>"},
                                   {"png[body=abc]", "<body>YWJj&#13;\n</body>"},
                                   {"plain[enc=quoted-printable,body=a<b]", "<body>a&lt;b</body>"},
                                   {"mixed[body=own](none[enc=7bit,body=x],none[enc=7bit,body=x])",
                                    "<body>" + part + part + "<![CDATA[own]]></body></mime_message>"}})
    EXPECT_THAT(xmlOf(*buildTree(tree)), HasSubstr(body)) << tree;
}

TEST(EmailXml, makes_bodies_fit_for_rendering_first) {
  const EmailPtr mail =
      load(crlf("Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\nGrüße \xFF\n"));
  EXPECT_THAT(xmlOf(*mail), AllOf(HasSubstr("<content-transfer-encoding>quoted-printable<"),
                                  HasSubstr("<body>Gr=C3=BC=C3=9Fe =EF=BF=BD&#13;\n</body>")));
}

TEST(EmailXml, parts_too_deep_for_a_parser_are_given_as_mime) {
  std::string tree = "plain[body=innermost]";
  for (int i = 0; i < 95; ++i) tree = "mixed(" + tree + ")";
  const std::string xml = xmlOf(*buildTree(tree));
  EXPECT_EQ(count(xml, "<subpart>"), 80);
  EXPECT_THAT(xml, HasSubstr("Content-Type: multipart/mixed"));
  EXPECT_EQ(count(xml, "innermost"), 1);
}

TEST(EmailXml, a_dead_part_is_empty_and_stops_nobody) {
  const EmailPtr mail = buildTree("mixed(none,none[enc=quoted-printable,body=y])");
  const Killed dead(*mail->getPart(0));
  const std::string xml = xmlOf(*mail);
  EXPECT_THAT(xml, HasSubstr("<body><subpart><mime_message/></subpart><subpart><mime_message>"));
  EXPECT_THAT(xml, HasSubstr("<body>y</body>"));
  EXPECT_FALSE(mail->getPart(0)->getEmailXmlR(*XmlHandle(ClsXml::createNewCls()), quiet));
}

EmailPtr mhtCopy(Email2& mail, const std::string& html = "", LogBase& log = quiet) {
  StringBuffer text(html);
  return EmailPtr(mail.cloneToMht2(text, log));
}

std::string_view pageOf(const EmailPtr& mail) { return mail->findHtmlPart()->m_body.view(); }

TEST(CloneToMht, drops_attachments_and_makes_html_of_lone_text) {
  // The tree, a page that refers to items, and the copy. What is neither text nor alternatives gives no page.
  for (const auto& [tree, html, expected] : rowsOf<3>(R"(
    html |  | html                                       || plain |  | html
    alternative(plain,html) |  | alternative(plain,html) || alternative(plain) |  | alternative(plain,html)
    alternative(calendar) |  | alternative(calendar)     || mixed(plain,pdf:attachment) |  | mixed(plain)
    mixed(html,png[cid=<i@x>]:attachment,pdf[cid=<p@x>]:attachment) | 'cid:i@x' | mixed(html,png:attachment)
    mixed(html,png[cid=<>]:attachment) | 'cid:' | mixed(html))")) {
    const EmailPtr mail = buildTree(tree);
    const std::string before = printTree(mail);
    EXPECT_EQ(printTree(mhtCopy(*mail, html)), expected) << tree;
    EXPECT_EQ(printTree(mail), before) << tree;
  }
}

TEST(CloneToMht, deliberately_does_not_escape_text) {
  for (const std::string charset : {"utf-8", "iso-8859-1", "us-ascii"}) {
    const EmailPtr mail =
        mhtCopy(*load("Content-Type: text/plain; charset=" + charset + "\r\n\r\na<b & \nc"));
    EXPECT_EQ(pageOf(mail), "<html><head/><META http-equiv=\"Content-Type\" content=\"text/html; charset=" +
                                charset + "\"><body><pre>a<b & \r\nc</pre></body></html>");
    EXPECT_THAT(field(*mail, "Content-Type"), HasSubstr(charset));
  }
  // Deliberate: an alternative gets no META tag.
  EXPECT_EQ(pageOf(mhtCopy(*buildTree("alternative(plain[body=a<b])"))),
            "<html><head/><body><pre>a<b</pre></body></html>");
}

TEST(CloneToMht, logs_what_it_found) {
  LogMemory log;
  mhtCopy(*buildTree("alternative(plain)"), "", log);
  EXPECT_THAT(log.text(),
              HasSubstr("  MultipartAlternative:\n    htmlAltIndex: -1\n    plainTextAltIndex: 0\n"));
  mhtCopy(*buildTree("html"), "", log);
  EXPECT_THAT(log.text(), HasSubstr("  NotMultipartAlternative:\n    contentType: text/html\n"));
}

TEST(DeadNodes, hold_nothing_and_stay_as_they_are) {
  for (const char* tree : {"mixed(plain[enc=8bit,file=a/b],html[body=vi<!-- -->agra])", "related(html,png)",
                           "delivery", "mixed(rfc822[file=a])", "digest(rfc822)", "rfc822[file=a]"}) {
    const EmailPtr mail = buildTree(tree), other = buildTree("related");
    const std::string before = write(*mail);
    LogMemory log;
    SystemCerts certs;
    int counter = 0;
    XString field("Content-Disposition"), attribute("filename"), out[4];
    for (XString& text : out) text.setFromUtf8("what was there");
    StringBuffer report("what was there");
    ClsStringArray list;
    {
      const Killed root(*mail);
      mail->convertToReply(log);
      mail->convertToForward(log);
      mail->removeHdrsForwRepl(log);
      mail->moveMtMixedPlainTextToAlt(log);
      Email2::checkMoveHtmlToRelated(*mail, *other, log);
      mail->safeguardBodies(log);
      mail->removeAttachmentPaths(log);
      mail->unSpamify(log);
      mail->addRelatedContent(other.get(), log);
      mail->dropRelatedItem(0);
      mail->dropRelatedItems();
      mail->fixRelated(log);
      mail->removeAttachedMessages();
      EXPECT_FALSE(mhtCopy(*mail, "", log) || mail->getRelatedItem(0, log) ||
                   mail->setRelatedHeader(0, "X", "b", log));
      EXPECT_EQ(mail->getNumRelatedItems(log) + mail->firstPartNotRelatedItem(log), 0);
      EXPECT_EQ(mail->getNumAttachedMessages(log) + mail->getNumDigests() + mail->getNumReports(), 0);
      EXPECT_FALSE(mail->getAttachedMessage(0, counter, certs, log) || mail->getNthDigest(0, certs, log));
      EXPECT_FALSE(mail->getAttachedMessageAttr(0, counter, field, attribute, log, out[0]));
      EXPECT_FALSE(mail->getHeaderFieldAttr("Content-Disposition", "filename", out[1], log));
      EXPECT_FALSE(mail->removeAttachedMessage(0) || mail->isReportPart() || mail->getReport(0, log, report));
      EXPECT_FALSE(mail->getDeliveryStatusInfo("Status", out[2], log) ||
                   mail->getDsnFinalRecipients(list, log));
      EXPECT_FALSE(mail->getDeliveryStatusContent(out[3], log));
    }
    for (const XString& text : out) EXPECT_TRUE(text.isEmpty() && report.isEmpty());
    EXPECT_EQ(said(log) + write(*mail), before);
  }
}

}  // namespace
}  // namespace mailtree
