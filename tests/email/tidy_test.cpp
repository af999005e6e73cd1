// Clean-ups: texts moved to where they belong, safe encodings, bare file names, pages without spam tricks.
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

TEST(Tidy, plain_text_at_the_head_of_a_mixed_moves_into_a_new_alternative) {
  const struct {
    const char *before, *after, *logged;
  } rows[] = {
      {"mixed(plain,pdf)", "mixed(alternative(plain),pdf)", "text/plain"},
      {"multipart/x-mixed-replace(plain)", "multipart/x-mixed-replace(alternative(plain))", "text/plain"},
      // Deliberate: nobody asks whether the text is an attached file.
      {"mixed(plain:attachment,pdf)", "mixed(alternative(plain:attachment),pdf)", "text/plain"},
      {"mixed(pdf,plain)", "mixed(pdf,plain)", "application/pdf"},
      {"mixed(plain,alt(html))", "mixed(plain,alternative(html))", ""},
      {"mixed", "mixed", ""},
      {"related(plain,png)", "related(plain,png)", ""},
      {"plain", "plain", ""},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    LogMemory log;
    mail->moveMtMixedPlainTextToAlt(log);
    EXPECT_EQ(printTree(mail), row.after) << row.before;
    EXPECT_THAT(log.text(), HasSubstr("moveMtMixedPlainTextToAlt"));
    EXPECT_EQ(log.text().find("sbCt") != std::string::npos, row.logged[0] != 0) << row.before;
    EXPECT_THAT(log.text(), HasSubstr(row.logged)) << row.before;
  }
}

TEST(Tidy, deliberate_type_of_the_text_to_move_is_compared_with_regard_to_case) {
  const EmailPtr mail = buildTree("mixed(plain,pdf)");
  LogNull log;
  mail->getPart(0)->fixContentTypeUtf8("Text/Plain", log);
  mail->moveMtMixedPlainTextToAlt(log);
  EXPECT_EQ(mail->getNumParts(), 2);
  EXPECT_EQ(mail->getPart(0)->m_contentType.m_type.view(), "Text/Plain");
}

TEST(Tidy, first_html_moves_to_the_end_of_the_other_enclosure) {
  const struct {
    const char *from, *to, *fromAfter, *toAfter;
  } rows[] = {
      {"mixed(plain,html,html)", "related(png)", "mixed(plain,html)", "related(png,html)"},
      {"mixed(alt(html),plain)", "related(png)", "mixed(alternative(html),plain)", "related(png)"},
      {"html", "related", "html", "related"},
  };
  for (const auto& row : rows) {
    const EmailPtr from = buildTree(row.from), to = buildTree(row.to);
    LogNull log;
    Email2::checkMoveHtmlToRelated(*from, *to, log);
    EXPECT_EQ(printTree(from), row.fromAfter) << row.from;
    EXPECT_EQ(printTree(to), row.toAfter) << row.from;
  }
  const EmailPtr from = buildTree("mixed(html[body=dead],html[body=live])"), to = buildTree("related");
  const Killed first(*from->getPart(0));
  LogNull log;
  Email2::checkMoveHtmlToRelated(*from, *to, log);
  ASSERT_EQ(to->getNumParts(), 1);
  EXPECT_EQ(to->getPart(0)->m_body.view(), "live");
}

TEST(Tidy, bodies_get_an_encoding_that_survives_transport) {
  constexpr const char* kSame = "same";
  const struct {
    const char* part;  // the one that is looked at
    int codePage;
    const char* encoding;
  } rows[] = {
      {"plain[enc=7bit,body=ä]", 65001, "quoted-printable"},
      {"plain[enc=7bit,body=ä]", 932, "base64"},
      {"plain[enc=7bit,body=ä]", 0, "quoted-printable"},
      {"plain[enc=7bit,body=a]", 65001, kSame},
      {"plain[enc=8bit,body=a]", 65001, "quoted-printable"},
      {"plain[enc=Binary,body=a]", 0, "quoted-printable"},
      {"plain[enc=8bit,body=a]", 20127, "7bit"},
      {"plain[enc=8bit,body=ä]:attachment", 20127, "quoted-printable"},  // written as it stands: no 7bit
      {"plain[enc=Base64,body=ä]", 65001, kSame},
      {"plain[enc=Quoted-Printable,body=ä]", 932, kSame},
      {"none[enc=7bit,body=ä]", 65001, "quoted-printable"},
      {"none[enc=7bit,body=a]", 65001, kSame},
      {"html[enc=7bit,body=a]", 65001, "quoted-printable"},  // HTML always, whatever is in it
      {"html[enc=7bit,body=a]", 932, "base64"},
      {"html[enc=7bit,body=a]", 0, "quoted-printable"},
      {"html[enc=8bit,body=ä]", 20127, kSame},
      {"png[enc=binary]", 65001, "base64"},
      {"png[enc=8bit,body=ä]", 65001, kSame},
      {"rfc822[enc=8bit,body=ä]", 65001, kSame},
      {"mixed[enc=binary](plain)", 65001, kSame},
      {"multipart/unheard[enc=8bit,body=ä]", 65001, kSame},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(std::string("mixed(plain,related(html,") + row.part + "))");
    if (row.codePage != 0) mail->use_codepage(row.codePage);
    Email2& part = *nodeAt(*mail, "/1/1");
    const std::string before(part.m_transferEncoding.view());
    LogNull log;
    mail->safeguardBodies(log);
    EXPECT_EQ(part.m_transferEncoding.view(), row.encoding == kSame ? before : row.encoding)
        << row.part << " in " << row.codePage;
    EXPECT_EQ(disagreeingFields(part), "") << row.part;
    EXPECT_EQ(nodeAt(*mail, "/1")->m_transferEncoding.view(), "7bit") << row.part;
  }
}

TEST(Tidy, safeguarded_message_is_ascii_and_reads_the_same) {
  const EmailPtr mail = load(
      "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\nGr\xC3\xBC\xC3\x9F\x65\n");
  LogNull log;
  mail->safeguardBodies(log);
  const std::string written = write(*mail);
  EXPECT_THAT(written, HasSubstr("Gr=C3=BC=C3=9Fe"));
  EXPECT_EQ(load(written)->m_body.view(), "Gr\xC3\xBC\xC3\x9F\x65\n");
}

TEST(Tidy, file_names_lose_their_directories) {
  const struct {
    const char *fields, *disposition, *name;
  } rows[] = {
      {"Content-Type: image/png; name=\"C:\\pics\\a.png\"\nContent-Disposition: attachment; "
       "filename=\"/tmp/b.png\"",
       "attachment; filename=\"b.png\"", "a.png"},
      {"Content-Type: image/png; name=\"pics/a.png\"\nContent-Disposition: inline",
       "inline; filename=\"a.png\"", "a.png"},
      {"Content-Type: image/png; name=\"pics/a.png\"", "(none)", "a.png"},
      {"Content-Type: image/png\nContent-Disposition: attachment; filename=\"a.png\"; size=4",
       "attachment; filename=\"a.png\"; size=4", ""},
      {"Content-Type: image/png; name=\"x/\"\nContent-Disposition: attachment; filename=\"x/\"", "attachment",
       ""},
      {"Content-Type: image/png\nContent-Location: http://example.com/a.png", "(none)", ""},
      // The slash is a letter of base64 here.
      {"Content-Type: image/png; name=\"=?utf-8?B?w7/Dvw==?=\"", "(none)", "\xC3\xBF\xC3\xBF"},
      {"Content-Type: image/png; name=\"=?utf-8?Q?dir=2Fa=C3=A4?=\"", "(none)", "a\xC3\xA4"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail =
        load("Content-Type: multipart/mixed; boundary=b\n\n--b\n\ntext\n--b\n" + std::string(row.fields) +
             "\nContent-Transfer-Encoding: base64\n\nAAAA\n--b--\n");
    LogNull log;
    mail->removeAttachmentPaths(log);
    const EmailPtr again = load(write(*mail));
    for (Email2* root : {mail.get(), again.get()}) {
      Email2& part = *root->getPart(1);
      EXPECT_EQ(fieldOf(part, "Content-Disposition"), row.disposition) << row.fields;
      EXPECT_EQ(part.m_contentType.m_name.view(), row.name) << row.fields;
    }
  }
}

TEST(Tidy, html_body_is_replaced_by_its_cleaned_form) {
  const struct {
    const char *tree, *shape;
  } rows[] = {
      {"html[body=vi<!-- x -->agra]", "html"},
      {"mixed(alt(plain,related(html[body=vi<!-- x -->agra],png)),pdf)",
       "mixed(alternative(plain,related(html,png)),pdf)"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.tree);
    LogNull log;
    mail->unSpamify(log);
    EXPECT_EQ(printTree(mail), row.shape);
    StringBuffer html;
    mail->getHtmlBodyUtf8(*mail, html, log);
    EXPECT_THAT(std::string(html.view()), HasSubstr("viagra")) << row.tree;
  }
  for (const char* tree : {"plain[body=vi<!-- x -->agra]", "html[body=]"}) {
    const EmailPtr mail = buildTree(tree);
    const std::string before = write(*mail);
    LogNull log;
    mail->unSpamify(log);
    EXPECT_EQ(write(*mail), before) << tree;
  }
}

TEST(Tidy, dead_nodes_are_left_alone_in_silence) {
  const EmailPtr mail = buildTree("mixed(plain[enc=8bit,file=a/b],html[body=vi<!-- x -->agra])");
  const EmailPtr other = buildTree("related");
  LogMemory log;
  {
    const Killed root(*mail);
    mail->moveMtMixedPlainTextToAlt(log);
    Email2::checkMoveHtmlToRelated(*mail, *other, log);
    mail->safeguardBodies(log);
    mail->removeAttachmentPaths(log);
    mail->unSpamify(log);
  }
  EXPECT_EQ(countMessages(log), 0);
  EXPECT_EQ(printTree(mail), "mixed(plain,html)");
  EXPECT_EQ(mail->getPart(0)->m_transferEncoding.view(), "8bit");
  EXPECT_EQ(mail->getPart(0)->m_dispFilename.view(), "a/b");
}

}  // namespace
}  // namespace mailtree
