// A tree as an XML document, and as a copy to be kept as a web archive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "mailtree/base/Xml.h"
#include "tests/email/cases.h"
#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;

LogNull quiet;

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
    X-Odd(name)/1: v                  | <x-odd-name--1>v</x-odd-name--1>
    3Com: v                           | <_3com>v</_3com>
    To: =?utf-8?Q?=C3=B6?= <j@x>,\n b@y | <to><addr>j@x</addr><name>ö</name><addr>b@y</addr><name/></to>
    To: undisclosed-recipients:;      | <to>undisclosed-recipients:;</to>
    Return-Path: <a@b>                | <return-path><addr>a@b</addr><name/></return-path>
    Received: a\nReceived: b          | <received>a</received><received>b</received>
    SVZ-Size: 12\nSubject: s          | <subject>s</subject>
    Subject: a\x01\x62\x1B            | <subject>a\xEF\xBF\xBDb\xEF\xBF\xBD</subject>
    Bcc: A <a@x>\nX: t\nBcc: b@x| <bcc><addr>a@x</addr><name>A</name><addr>b@x</addr><name/></bcc><x>t</x>)"))
    EXPECT_THAT(xmlOf(*load(crlf(fields + "\n\nx"))), HasSubstr("<mime_message>" + xml + "<body><!["))
        << fields;
}

TEST(EmailXml, a_bcc_is_shown_once_wherever_it_came_from) {
  Email2 composed;
  composed.addRecipient(3, "A", "a@x", quiet);
  EXPECT_EQ(count(xmlOf(composed), "a@x"), 1);
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
  LogMemory log;
  EXPECT_FALSE(mail->getPart(0)->getEmailXmlR(*XmlHandle(ClsXml::createNewCls()), log));
  EXPECT_EQ(said(log), "");
}

EmailPtr mhtCopy(Email2& mail, const std::string& html = "", LogBase& log = quiet) {
  StringBuffer text(html);
  return EmailPtr(mail.cloneToMht2(text, log));
}

std::string_view pageOf(const EmailPtr& mail) { return mail->findHtmlPart()->m_body.view(); }

TEST(CloneToMht, drops_attachments_and_makes_html_of_lone_text) {
  // The tree, a page that refers to items, and the copy. What is neither text nor alternatives gives no page.
  for (const auto& [tree, html, expected] : rowsOf<3>(R"(
    html                                                              | | html
    plain                                                             | | html
    alternative(plain,html)                                           | | alternative(plain,html)
    alternative(plain)                                                | | alternative(plain,html)
    alternative(calendar)                                             | | alternative(calendar)
    mixed(plain,pdf:attachment)                                       | | mixed(plain)
    mixed(html,png[cid=<i@x>]:attachment,pdf[cid=<p@x>]:attachment)   | 'cid:i@x' | mixed(html,png:attachment)
    mixed(html,png[cid=<>]:attachment)                                | 'cid:'    | mixed(html))")) {
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
  EXPECT_EQ(pageOf(mhtCopy(*buildTree("alternative(plain[body=a<b])"))),
            "<html><head/><body><pre>a<b</pre></body></html>")
      << "deliberately without a META tag";
}

TEST(CloneToMht, logs_what_it_found) {
  LogMemory log;
  mhtCopy(*buildTree("alternative(plain)"), "", log);
  EXPECT_THAT(log.text(),
              HasSubstr("  MultipartAlternative:\n    htmlAltIndex: -1\n    plainTextAltIndex: 0\n"));
  mhtCopy(*buildTree("html"), "", log);
  EXPECT_THAT(log.text(), HasSubstr("  NotMultipartAlternative:\n    contentType: text/html\n"));
}

TEST(CloneToMht, a_dead_node_gives_nothing) {
  const EmailPtr mail = buildTree("plain");
  const Killed dead(*mail);
  LogMemory log;
  EXPECT_FALSE(mhtCopy(*mail, "", log));
  EXPECT_EQ(said(log), "");
}

}  // namespace
}  // namespace mailtree
