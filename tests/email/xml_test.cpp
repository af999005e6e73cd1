#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mailtree/base/Xml.h"
#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string xmlOf(Email2& mail, bool compact = true) {
  StringBuffer out;
  LogNull log;
  EXPECT_TRUE(mail.getEmailXml(compact, out, log));
  return std::string(out.view());
}

int count(std::string_view text, std::string_view wanted) {
  int n = 0;
  for (std::size_t at = 0; (at = text.find(wanted, at)) != text.npos; at += wanted.size()) ++n;
  return n;
}

TEST(EmailXml, header_fields_become_elements) {
  const struct {
    const char *fields, *xml;
  } rows[] = {
      {"Subject: =?utf-8?Q?Gr=C3=BC=C3=9Fe?= & <more>\n", "<subject>Grüße &amp; &lt;more&gt;</subject>"},
      {"X-Odd(name)/1: v\n", "<x-odd-name--1>v</x-odd-name--1>"},
      {"3Com: v\n", "<_3com>v</_3com>"},
      {"To: =?utf-8?Q?J=C3=B6rg?= <j@x.example>,\n b@y.example\n",
       "<to><addr>j@x.example</addr><name>Jörg</name><addr>b@y.example</addr><name/></to>"},
      {"To: undisclosed-recipients:;\n", "<to>undisclosed-recipients:;</to>"},
      {"Return-Path: <a@b.example>\n", "<return-path><addr>a@b.example</addr><name/></return-path>"},
      {"Received: a\nReceived: b\n", "<received>a</received><received>b</received>"},
      {"SVZ-Size: 12\nSubject: s\n", "<mime_message><subject>s</subject>"},
      {"Subject: a\x01\x62\x1B\n", "<subject>a\uFFFD\x62\uFFFD</subject>"},
  };
  for (const auto& row : rows)
    EXPECT_THAT(xmlOf(*load(crlf(std::string(row.fields) + "\nbody\n"))), HasSubstr(row.xml)) << row.fields;
}

TEST(EmailXml, a_bcc_is_shown_once_wherever_it_came_from) {
  LogNull log;
  const EmailPtr received = load(crlf("Bcc: A <a@x.example>\nTo: t@x.example\nBcc: b@x.example\n\n"));
  EXPECT_THAT(xmlOf(*received), HasSubstr("<mime_message><bcc><addr>a@x.example</addr><name>A</name>"
                                          "<addr>b@x.example</addr><name/></bcc><to>"));
  EXPECT_EQ(count(xmlOf(*received), "<bcc>"), 1);

  Email2 composed;
  composed.addRecipient(3, "A", "a@x.example", log);
  EXPECT_EQ(count(xmlOf(composed), "a@x.example"), 1);
  EXPECT_THAT(xmlOf(composed), HasSubstr("<bcc><addr>a@x.example</addr><name>A</name></bcc>"));
  composed.removeHeaderField("Bcc");
  EXPECT_THAT(xmlOf(composed), HasSubstr("<bcc><addr>a@x.example</addr><name>A</name></bcc><body"));
}

TEST(EmailXml, mirrors_the_tree) {
  const struct {
    const char *tree, *body;
  } rows[] = {
      {"plain[body=]", "<body/>"},
      {"plain[body=a<b]", "<body><![CDATA[a<b]]></body>"},
      {"png[body=abc]", "<body>YWJj&#13;\n</body>"},
      {"plain[enc=quoted-printable,body=a<b]", "<body>a&lt;b</body>"},
      {"mixed(none[enc=7bit,body=x],none[enc=7bit,body=y])",
       "<body><subpart><mime_message><content-transfer-encoding>7bit</"
       "content-transfer-encoding><body><![CDATA[x]]></body></mime_message></subpart>"
       "<subpart><mime_message><content-transfer-encoding>7bit</"
       "content-transfer-encoding><body><![CDATA[y]]></body></mime_message></subpart></body>"},
      {"mixed[body=own](none[enc=7bit,body=x])",
       "</mime_message></subpart><![CDATA[own]]></body></mime_message>"},
  };
  for (const auto& row : rows) EXPECT_THAT(xmlOf(*buildTree(row.tree)), HasSubstr(row.body)) << row.tree;
}

TEST(EmailXml, makes_bodies_fit_for_rendering_first) {
  const EmailPtr mail =
      load(crlf("Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\nGrüße \xFF\n"));
  EXPECT_THAT(xmlOf(*mail), HasSubstr("<content-transfer-encoding>quoted-printable<"));
  EXPECT_THAT(xmlOf(*mail), HasSubstr("<body>Gr=C3=BC=C3=9Fe =EF=BF=BD&#13;\n</body>"));
}

TEST(EmailXml, parts_too_deep_for_a_parser_are_given_as_mime) {
  std::string tree = "plain[body=innermost]";
  for (int i = 0; i < 95; ++i) tree = "mixed(" + tree + ")";
  const EmailPtr mail = buildTree(tree);
  const std::string xml = xmlOf(*mail);
  EXPECT_EQ(count(xml, "<subpart>"), 80);
  EXPECT_THAT(xml, HasSubstr("Content-Type: multipart/mixed"));
  EXPECT_EQ(count(xml, "innermost"), 1);
}

TEST(EmailXml, a_dead_part_is_empty_and_stops_nobody) {
  const EmailPtr mail = buildTree("mixed(none[enc=7bit,body=x],none[enc=7bit,body=y])");
  const Killed dead(*mail->getPart(0));
  EXPECT_THAT(
      xmlOf(*mail),
      HasSubstr(
          "<body><subpart><mime_message/></subpart><subpart><mime_message><content-transfer-encoding>7bit</"
          "content-transfer-encoding><body><![CDATA[y"));
  LogMemory log;
  const XmlHandle element(ClsXml::createNewCls());
  EXPECT_FALSE(mail->getPart(0)->getEmailXmlR(*element, log));
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
