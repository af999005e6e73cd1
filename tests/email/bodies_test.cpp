// Bodies: which text a reader sees, and where a new one goes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/email/cases.h"
#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;

LogNull quiet;

std::string effectiveOf(const Email2& mail, std::string_view before = "") {
  DataBuffer bytes;
  bytes.append(before);
  mail.getEffectiveBodyData(mail, bytes, quiet);
  return std::string(bytes.view());
}

/// The plain and the HTML body, both in quoted-printable, and what a reader would see; "-" for none.
std::string readingOf(Email2& mail) {
  StringBuffer untouched("x"), out[4];
  const bool found[] = {mail.getPlainTextBodyUtf8(mail, out[0], quiet),
                        mail.getHtmlBodyUtf8(mail, out[1], quiet),
                        mail.getPlainTextBodyQP(mail, out[2], untouched, quiet),
                        mail.getHtmlBodyQP(mail, out[3], untouched, quiet)};
  EXPECT_EQ(untouched.view(), "x");
  EXPECT_TRUE(mail.hasPlainTextBody() == found[2] && mail.hasHtmlBody() == found[3]);
  std::string text;
  for (int i = 0; i < 4; ++i) text.append(found[i] ? out[i].getString() : "-").append(" ");
  return text + effectiveOf(mail);
}

TEST(Bodies, are_found_in_every_shape) {
  // The utf-8 forms look everywhere, the QP forms down the first parts only.
  // Deliberate: a signed part beside a footer is not looked into.
  for (const auto& [tree, expected] : rowsOf<2>(R"(
    plain                                  | plain - plain - plain
    html[body=ä]                           | - ä - =C3=A4 ä
    none                                   | - - - - none
    mixed(alt(plain,html),pdf)             | plain html plain html plain
    mixed(plain,alt(html))                 | plain html plain - plain
    mixed(pdf:attachment,plain)            | plain - - - plain
    alt(plain,related(html,png))           | plain html plain html plain
    report(html,delivery)                  | html - - html html
    report                                 | - - - - report
    png                                    | - - - -\x20
    signed(alt(plain,html),p7s)            | plain html plain html plain
    mixed(signed(plain,p7s),plain[body=f]) | f - plain - plain
    none(plain:attachment,none(plain),html) | - - - - html)"))
    EXPECT_EQ(readingOf(*buildTree(tree)), expected) << tree;
  EXPECT_EQ(effectiveOf(*buildTree("mixed(png:inline)"), "before"), "") << "deliberately emptied";
  EXPECT_EQ(effectiveOf(*buildTree("plain"), "before "), "before plain");
}

TEST(Bodies, come_in_a_code_page_when_asked_for_one) {
  const EmailPtr mail = buildTree("plain[body=caf\xC3\xA9]");
  for (const auto& [codePage, bytes] : {std::pair(0, "café"), std::pair(65001, "café"),
                                        std::pair(28591, "caf\xE9"), std::pair(20127, "caf?")}) {
    DataBuffer out;
    out.append("replaced");
    mail->getEffectiveBodyMb(*mail, codePage, out, quiet);
    EXPECT_EQ(out.view(), bytes) << codePage;
  }
}

TEST(Bodies, of_dead_nodes_are_not_found) {
  const EmailPtr mail = buildTree("mixed(alt(plain,html),pdf)");
  const Killed inner(*nodeAt(*mail, "/0"));
  EXPECT_EQ(readingOf(*mail), "- - - - ");
  EXPECT_EQ(mail->getEffectiveBodyObject3(*mail), nullptr);
  const Killed root(*mail);
  EXPECT_EQ(readingOf(*mail), "- - - - ");
  EXPECT_EQ(effectiveOf(*mail, "kept"), "kept");
  EXPECT_EQ(mail->get_charset_codepage(), 0);
}

/// Sets or adds a body; the path of its part, and the type where it was corrected.
std::string put(Email2& mail, std::string_view how, const std::string& type, std::string_view body,
                LogBase& log = quiet, bool isText = true) {
  DataBuffer data;
  data.append(body);
  StringBuffer given(type);
  Email2* part = &mail;
  const auto operation = how == "set" ? &Email2::setBody : &Email2::addAlternativeBody;
  EXPECT_TRUE((mail.*operation)(data, isText, given, &part, log));
  EXPECT_TRUE(data.isEmpty()) << "moved";
  return pathOf(mail, part) + (given.view() == type ? "" : " " + given.extractString());
}

TEST(Bodies, new_one_goes_where_it_belongs) {
  for (const auto& [before, how, type, after, part] : rowsOf<5>(R"(
    plain                          | set | plain    | plain | /
    plain                          | set | html     | html | /
    pdf                            | set | plain    | plain | /
    alt(plain,html)                | set | plain    | alternative(plain,html) | /0
    alt(plain,html)                | set | html     | alternative(plain,html) | /1
    alt(html)                      | set | plain    | alternative(plain,html) | /0
    alt(plain)                     | set | calendar | alternative(plain,calendar) | /1
    related(png)                   | set | html     | related(html,png) | /0
    related(png)                   | set | plain    | related(plain,png) | /0
    mixed(pdf:attachment)          | set | html     | mixed(pdf:attachment,html) | /1
    mixed(pdf:attachment)          | set | plain    | mixed(plain,pdf:attachment) | /0
    mixed(plain[body=],pdf)        | set | html     | mixed(html,pdf) | none
    mixed(plain,pdf)               | set | html     | mixed(alternative(plain,html),pdf) | /0/1
    mixed(plain:attachment,pdf)    | set | html     | mixed(alternative(html),plain:attachment,pdf) | /0/0
    alt(plain:attachment,html)     | set | plain    | alternative(plain,plain:attachment,html) | /0
    multipart/x-mixed-replace(plain) | set | html   | multipart/x-mixed-replace(plain,html) | /1
    plain                          | add | html     | alternative(plain,html) | /1
    html                           | add | plain    | alternative(plain,html) | /0
    plain[body=]                   | add | html     | alternative(html) | /0
    mixed(related(html,png),pdf)   | add | html     | mixed(related(html,png),pdf) | /0/0
    related(html,png)              | add | plain    | alternative(plain,related(html,png)) | /0)")) {
    const EmailPtr mail = buildTree(before);
    EXPECT_EQ(put(*mail, how, "text/" + type, "new"), part) << before << how << type;
    EXPECT_EQ(printTree(mail) + disagreeingFields(*mail), after) << before << how << type;
    EXPECT_THAT(write(*mail), HasSubstr("new")) << before << how << type;
  }
}

TEST(Bodies, multipart_as_the_type_of_one_is_corrected_and_said) {
  for (const bool isText : {true, false}) {
    const EmailPtr mail = buildTree("plain");
    LogMemory log;
    EXPECT_EQ(put(*mail, "set", "Multipart/mixed", "x", log, isText),
              isText ? "/ text/plain" : "/ application/octet-stream");
    EXPECT_EQ(said(log), "Invalid body content type.|");
    EXPECT_EQ(mail->m_transferEncoding.view(), isText ? "7bit" : "base64");
  }
}

TEST(Bodies, long_lines_are_not_sent_as_7bit) {
  for (const char* tree : {"plain", "alt(plain)"})
    for (const std::size_t length : {990, 991}) {
      const EmailPtr mail = buildTree(tree);
      put(*mail, "set", "text/plain", "short\r\n" + std::string(length, 'x'));
      const Email2& part = mail->getNumParts() ? *mail->getPart(0) : *mail;
      EXPECT_EQ(part.m_transferEncoding.view(), length == 990 ? "7bit" : "quoted-printable")
          << tree << length;
      EXPECT_EQ(fieldOf(part, "Content-Transfer-Encoding"), part.m_transferEncoding.view()) << tree;
    }
}

TEST(Bodies, changed_one_leaves_the_rest_byte_for_byte) {
  const std::string before =
      write(*load(crlf("Subject:  odd   spacing\nX-Kept: =?utf-8?q?as?=\n  it was\nMIME-Version: 1.0\n"
                       "Content-Type: multipart/mixed;\n boundary=\"=_one\"\n\npreamble\n--=_one\n"
                       "Content-Type: text/plain;charset=US-ASCII\n\nOLD\n--=_one\nContent-Disposition: "
                       "attachment;\n  filename=a.csv\n"
                       "Content-Type: text/csv; charset=x-odd\n\na;b\n--=_one--\n")));
  const EmailPtr mail = load(before);
  put(*mail, "set", "text/plain", "NEW");
  const std::string written = write(*mail);
  const std::size_t part = before.find("Content-Type: text/plain");
  EXPECT_EQ(written.substr(0, part), before.substr(0, part));
  EXPECT_EQ(written.substr(written.find("Content-Disp")), before.substr(before.find("Content-Disp")));
  EXPECT_THAT(written, HasSubstr("\r\n\r\nNEW\r\n"));
}

TEST(Bodies, what_a_multipart_held_that_could_not_be_split_becomes_a_part) {
  for (const auto& [received, change, after] : rowsOf<3>(R"(
    mixed\n                    | attach     | mixed(plain,zip:attachment)
    alternative; boundary=c\n  | attach     | mixed(alternative(plain),zip:attachment)
    mixed\nContent-Transfer-Encoding: binary\n\n\x01 | attach | mixed(octet,zip:attachment)
    mixed\n                    | text/plain | mixed(plain,plain)
    mixed\n                    | text/html  | mixed(alternative(plain,html))
    alternative; boundary=c\n  | text/plain | mixed(alternative(plain),plain)
    mixed; boundary=b\n\n--b\nContent-Type:multipart/alternative\n| text/html | mixed(alternative(plain,html))
    related\n                  | item       | related(plain,png))")) {
    const EmailPtr mail = load("Content-Type: multipart/" + received + "\nl\xC3\xB6st\n");
    DataBuffer data;
    StringBuffer type;
    if (change == "attach") mail->addDataAttachmentUtf8("a.zip", nullptr, 0, data, type, quiet);
    if (change == "item") mail->addRelatedContent(buildTree("png").release(), quiet);
    if (change.starts_with("text")) put(*mail, "set", change, "new");
    const EmailPtr again = load(write(*mail));
    EXPECT_EQ(printTree(again), after) << received;
    EXPECT_THAT(write(*again), testing::ContainsRegex("l=F6st|l=C3=B6st|AQps")) << received;
  }
}

TEST(Bodies, ready_part_replaces_the_alternative_of_its_type) {
  const EmailPtr mail = buildTree("alt(plain,related(html,png))");
  mail->getPart(1)->m_contentType.m_subtype.setString("text/html");
  EXPECT_FALSE(mail->addReplaceAlternative(nullptr, "text/html", quiet));
  ASSERT_TRUE(mail->addReplaceAlternative(buildTree("html[body=new]").release(), "text/html", quiet));
  EXPECT_EQ(printTree(mail) + " " + readingOf(*mail), "alternative(plain,html) plain new plain new plain");
}

}  // namespace
}  // namespace mailtree
