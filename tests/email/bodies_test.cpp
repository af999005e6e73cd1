// Bodies: which text a reader sees, and where a new one goes.
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

constexpr const char* kNone = "(none)";

std::string plainOf(Email2& mail) {
  LogNull log;
  StringBuffer text;
  return mail.getPlainTextBodyUtf8(mail, text, log) ? text.extractString() : kNone;
}

std::string htmlOf(Email2& mail) {
  LogNull log;
  StringBuffer text;
  return mail.getHtmlBodyUtf8(mail, text, log) ? text.extractString() : kNone;
}

std::string qpOf(Email2& mail, bool html) {
  LogNull log;
  StringBuffer text, untouched("x");
  const bool found = html ? mail.getHtmlBodyQP(mail, text, untouched, log)
                          : mail.getPlainTextBodyQP(mail, text, untouched, log);
  EXPECT_EQ(untouched.view(), "x");
  return found ? text.extractString() : kNone;
}

std::string effectiveOf(const Email2& mail, std::string_view before = "") {
  LogNull log;
  DataBuffer bytes;
  bytes.append(before);
  mail.getEffectiveBodyData(mail, bytes, log);
  return std::string(bytes.view());
}

TEST(Bodies, are_found_in_every_shape) {
  // The utf-8 forms look everywhere, the QP forms down the first parts only.
  const struct {
    const char *tree, *plain, *html, *plainQp, *htmlQp, *effective;
  } rows[] = {
      {"plain", "plain", kNone, "plain", kNone, "plain"},
      {"html[body=ä]", kNone, "ä", kNone, "=C3=A4", "ä"},
      {"none", kNone, kNone, kNone, kNone, "none"},
      {"alt(plain,html)", "plain", "html", "plain", "html", "plain"},
      {"mixed(alt(plain,html),pdf)", "plain", "html", "plain", "html", "plain"},
      {"mixed(plain,alt(html))", "plain", "html", "plain", kNone, "plain"},
      {"mixed(pdf:attachment,plain)", "plain", kNone, kNone, kNone, "plain"},
      {"related(html,png)", kNone, "html", kNone, "html", "html"},
      {"alt(plain,related(html,png))", "plain", "html", "plain", "html", "plain"},
      {"report(plain,delivery)", "plain", kNone, "plain", kNone, "plain"},
      {"report(html,delivery)", "html", kNone, kNone, "html", "html"},
      {"report", kNone, kNone, kNone, kNone, "report"},
      {"mixed", kNone, kNone, kNone, kNone, "mixed"},
      {"png", kNone, kNone, kNone, kNone, ""},
      {"signed(alt(plain,html),p7s)", "plain", "html", "plain", "html", "plain"},
      // Deliberate: a signed part beside a footer is not looked into.
      {"mixed(signed(plain,p7s),plain[body=footer])", "footer", kNone, "plain", kNone, "plain"},
      {"none(plain:attachment,none(plain),html)", kNone, kNone, kNone, kNone, "html"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.tree);
    EXPECT_EQ(plainOf(*mail), row.plain) << row.tree;
    EXPECT_EQ(htmlOf(*mail), row.html) << row.tree;
    EXPECT_EQ(qpOf(*mail, false), row.plainQp) << row.tree;
    EXPECT_EQ(qpOf(*mail, true), row.htmlQp) << row.tree;
    EXPECT_EQ(mail->hasPlainTextBody(), row.plainQp != std::string(kNone)) << row.tree;
    EXPECT_EQ(mail->hasHtmlBody(), row.htmlQp != std::string(kNone)) << row.tree;
    EXPECT_EQ(effectiveOf(*mail), row.effective) << row.tree;
  }
}

TEST(Bodies, deliberate_media_empties_what_the_caller_had) {
  EXPECT_EQ(effectiveOf(*buildTree("mixed(png:inline)"), "before"), "");
  EXPECT_EQ(effectiveOf(*buildTree("plain"), "before "), "before plain");
}

TEST(Bodies, come_in_a_code_page_when_asked_for_one) {
  const EmailPtr mail = buildTree("plain[body=caf\xC3\xA9]");
  const struct {
    int codePage;
    const char* bytes;
  } rows[] = {{0, "café"}, {-1, "café"}, {65001, "café"}, {28591, "caf\xE9"}, {20127, "caf?"}};
  for (const auto& row : rows) {
    LogNull log;
    DataBuffer bytes;
    bytes.append("replaced");
    mail->getEffectiveBodyMb(*mail, row.codePage, bytes, log);
    EXPECT_EQ(bytes.view(), row.bytes) << row.codePage;
  }
}

TEST(Bodies, of_dead_nodes_are_not_found) {
  const EmailPtr mail = buildTree("mixed(alt(plain,html),pdf)");
  const Killed inner(*nodeAt(*mail, "/0"));
  EXPECT_EQ(plainOf(*mail), kNone);
  EXPECT_FALSE(mail->hasPlainTextBody());
  EXPECT_EQ(mail->getEffectiveBodyObject3(*mail), nullptr);
  const Killed root(*mail);
  EXPECT_EQ(effectiveOf(*mail, "kept"), "kept");
  EXPECT_EQ(mail->get_charset_codepage(), 0);
}

struct Put {
  bool done;
  std::string part;
  std::string type;
};

using Operation = bool (Email2::*)(DataBuffer&, bool, StringBuffer&, Email2**, LogBase&);

Put put(Email2& mail, Operation operation, const char* type, std::string_view body, LogBase& log,
        bool isText = true) {
  DataBuffer data;
  data.append(body);
  StringBuffer given(type);
  Email2* part = &mail;
  const bool done = (mail.*operation)(data, isText, given, &part, log);
  EXPECT_EQ(data.isEmpty(), done) << "moved exactly when stored";
  return {done, pathOf(mail, part), given.extractString()};
}

TEST(Bodies, new_one_goes_where_it_belongs) {
  const struct {
    const char *before, *type, *after, *part;
  } rows[] = {
      {"plain", "text/plain", "plain", "/"},
      {"plain", "text/html", "html", "/"},
      {"html", "text/html", "html", "/"},
      {"pdf", "text/plain", "plain", "/"},
      {"alt(plain,html)", "text/plain", "alternative(plain,html)", "/0"},
      {"alt(plain,html)", "text/html", "alternative(plain,html)", "/1"},
      {"alt(html)", "text/plain", "alternative(plain,html)", "/0"},
      {"alt(plain)", "text/calendar", "alternative(plain,calendar)", "/1"},
      {"mixed(alt(plain),pdf:attachment)", "text/html", "mixed(alternative(plain,html),pdf:attachment)",
       "/0/1"},
      {"related(png)", "text/html", "related(html,png)", "/0"},
      {"related(html,png)", "text/html", "related(html,png)", "/0"},
      {"related(png)", "text/plain", "related(plain,png)", "/0"},
      {"mixed(pdf:attachment)", "text/html", "mixed(pdf:attachment,html)", "/1"},
      {"mixed(pdf:attachment)", "text/plain", "mixed(plain,pdf:attachment)", "/0"},
      {"mixed(plain[body=],pdf:attachment)", "text/html", "mixed(html,pdf:attachment)", "none"},
      {"mixed(plain,pdf:attachment)", "text/html", "mixed(alternative(plain,html),pdf:attachment)", "/0/1"},
      {"mixed(plain:attachment,pdf)", "text/html", "mixed(alternative(html),plain:attachment,pdf)", "/0/0"},
      {"alt(plain:attachment,html)", "text/plain", "alternative(plain,plain:attachment,html)", "/0"},
      {"multipart/x-mixed-replace(plain)", "text/html", "multipart/x-mixed-replace(plain,html)", "/1"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    LogNull log;
    const Put result = put(*mail, &Email2::setBody, row.type, "new", log);
    EXPECT_TRUE(result.done) << row.before;
    EXPECT_EQ(printTree(mail), row.after) << row.before << " + " << row.type;
    EXPECT_EQ(result.part, row.part) << row.before << " + " << row.type;
    EXPECT_EQ(disagreeingFields(*mail), "") << row.before << " + " << row.type;
    EXPECT_THAT(row.type == std::string("text/html") ? htmlOf(*mail) : write(*mail), HasSubstr("new"))
        << row.before << " + " << row.type;
  }
}

TEST(Bodies, old_text_stays_a_body_when_html_joins_it) {
  for (const char* tree : {"mixed(plain,pdf:attachment)", "alt(plain)", "mixed(alt(plain),zip:attachment)"}) {
    const EmailPtr mail = buildTree(tree);
    LogNull log;
    const int attachments = mail->getNumAttachments(log);
    put(*mail, &Email2::setBody, "text/html", "<p>new</p>", log);
    EXPECT_EQ(plainOf(*mail), "plain") << tree;
    EXPECT_THAT(htmlOf(*mail), HasSubstr("<p>new</p>")) << tree;
    EXPECT_EQ(mail->getNumAttachments(log), attachments) << tree;
  }
}

TEST(Bodies, alternative_is_added_beside_what_is_there) {
  const struct {
    const char *before, *type, *after, *part;
  } rows[] = {
      {"plain", "text/html", "alternative(plain,html)", "/1"},
      {"html", "text/plain", "alternative(plain,html)", "/0"},
      {"plain[body=]", "text/html", "alternative(html)", "/0"},
      {"mixed(plain,pdf:attachment)", "text/html", "mixed(alternative(plain,html),pdf:attachment)", "/0/1"},
      {"mixed(related(html,png),pdf:attachment)", "text/html", "mixed(related(html,png),pdf:attachment)",
       "/0/0"},
      {"related(html,png)", "text/plain", "alternative(plain,related(html,png))", "/0"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    LogNull log;
    const Put result = put(*mail, &Email2::addAlternativeBody, row.type, "new", log);
    EXPECT_EQ(printTree(mail), row.after) << row.before << " + " << row.type;
    EXPECT_EQ(result.part, row.part) << row.before << " + " << row.type;
  }
}

TEST(Bodies, multipart_as_the_type_of_one_is_corrected_and_said) {
  for (const bool isText : {true, false}) {
    const EmailPtr mail = buildTree("plain");
    LogMemory log;
    const Put result = put(*mail, &Email2::setBody, "Multipart/mixed", "x", log, isText);
    EXPECT_TRUE(result.done);
    EXPECT_EQ(result.type, isText ? "text/plain" : "application/octet-stream");
    EXPECT_THAT(log.text(), HasSubstr("Invalid body content type."));
    EXPECT_EQ(mail->m_transferEncoding.view(), isText ? "7bit" : "base64");
  }
}

TEST(Bodies, long_lines_are_not_sent_as_7bit) {
  for (const char* tree : {"plain", "alt(plain)"}) {
    for (const int length : {990, 991}) {
      const EmailPtr mail = buildTree(tree);
      LogNull log;
      put(*mail, &Email2::setBody, "text/plain",
          "short\r\n" + std::string(static_cast<std::size_t>(length), 'x'), log);
      const Email2& part = mail->getNumParts() ? *mail->getPart(0) : *mail;
      EXPECT_EQ(part.m_transferEncoding.view(), length == 990 ? "7bit" : "quoted-printable")
          << tree << length;
      EXPECT_EQ(fieldOf(part, "Content-Transfer-Encoding"), part.m_transferEncoding.view()) << tree;
    }
  }
}

TEST(Bodies, changed_one_leaves_the_rest_byte_for_byte) {
  const std::string original = crlf(
      "Subject:  odd   spacing\nX-Kept: =?utf-8?q?as?=\n  it was\nMIME-Version: 1.0\n"
      "Content-Type: multipart/mixed;\n boundary=\"=_one\"\n\npreamble\n--=_one\nContent-Type: "
      "text/plain;charset=US-ASCII\n\n"
      "OLD\n--=_one\nContent-Disposition: attachment;\n  filename=a.csv\nContent-Type: text/csv; "
      "charset=x-odd\n\n"
      "a;b\n--=_one--\n");
  const EmailPtr untouched = load(original);
  const EmailPtr mail = load(original);
  LogNull log;
  put(*mail, &Email2::setBody, "text/plain", "NEW", log);
  std::string written = write(*mail);
  const std::string before = write(*untouched);
  const std::size_t attachment = before.find("Content-Disposition");
  EXPECT_EQ(written.substr(0, before.find("Content-Type: text/plain")),
            before.substr(0, before.find("Content-Type: text/plain")));
  EXPECT_EQ(written.substr(written.find("Content-Disposition")), before.substr(attachment));
  EXPECT_THAT(written, HasSubstr("\r\n\r\nNEW\r\n"));
}

TEST(Bodies, what_a_multipart_held_that_could_not_be_split_becomes_a_part) {
  using Change = void (*)(Email2&, LogBase&);
  const Change attach = [](Email2& mail, LogBase& log) {
    DataBuffer data;
    StringBuffer type;
    mail.addDataAttachmentUtf8("a.zip", nullptr, 0, data, type, log);
  };
  const Change setPlain = [](Email2& mail, LogBase& log) {
    put(mail, &Email2::setBody, "text/plain", "new", log);
  };
  const Change setHtml = [](Email2& mail, LogBase& log) {
    put(mail, &Email2::setBody, "text/html", "new", log);
  };
  const Change addItem = [](Email2& mail, LogBase& log) {
    mail.addRelatedContent(buildTree("png").release(), log);
  };
  const std::string nested = "mixed; boundary=b\n\n--b\nContent-Type: multipart/alternative; boundary=c\n";
  const struct {
    std::string received;
    Change change;
    const char* after;
  } rows[] = {
      {"mixed\n", attach, "mixed(plain,zip:attachment)"},
      {"alternative; boundary=c\n", attach, "mixed(alternative(plain),zip:attachment)"},
      {"mixed\nContent-Transfer-Encoding: binary\n\n\x01", attach, "mixed(octet,zip:attachment)"},
      {"mixed\n", setPlain, "mixed(plain,plain)"},
      {"mixed\n", setHtml, "mixed(alternative(plain,html))"},
      {"alternative; boundary=c\n", setPlain, "mixed(alternative(plain),plain)"},
      {nested, setHtml, "mixed(alternative(plain,html))"},
      {"related\n", addItem, "related(plain,png)"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = load("Content-Type: multipart/" + row.received + "\nl\xC3\xB6st\n");
    LogNull log;
    row.change(*mail, log);
    const EmailPtr again = load(write(*mail));
    EXPECT_EQ(printTree(again), row.after) << row.received;
    EXPECT_THAT(write(*again), testing::AnyOf(HasSubstr("l=F6st"), HasSubstr("l=C3=B6st"), HasSubstr("AQps")))
        << row.received;
  }
}

TEST(Bodies, ready_part_replaces_the_alternative_of_its_type) {
  const EmailPtr mail = buildTree("alt(plain,related(html,png))");
  mail->getPart(1)->m_contentType.m_subtype.setString("text/html");
  LogNull log;
  EmailPtr part = buildTree("html[body=new]");
  EXPECT_FALSE(mail->addReplaceAlternative(nullptr, "text/html", log));
  ASSERT_TRUE(mail->addReplaceAlternative(part.release(), "text/html", log));
  EXPECT_EQ(printTree(mail), "alternative(plain,html)");
  EXPECT_EQ(htmlOf(*mail), "new");
}

}  // namespace
}  // namespace mailtree
