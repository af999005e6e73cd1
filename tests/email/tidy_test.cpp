// Clean-ups: texts moved to where they belong, safe encodings, bare file names, pages without spam tricks.
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

LogNull quiet;

TEST(Tidy, plain_text_at_the_head_of_a_mixed_moves_into_a_new_alternative) {
  // Deliberate: nobody asks whether the text is an attached file.
  for (const auto& [before, after, logged] : rowsOf<3>(R"(
    multipart/x-mixed-replace(plain) | multipart/x-mixed-replace(alternative(plain)) | sbCt=text/plain
    mixed(plain:attachment,pdf) | mixed(alternative(plain:attachment),pdf) | sbCt=text/plain
    mixed(pdf,plain)            | mixed(pdf,plain)                         | sbCt=application/pdf
    mixed(plain,alt(html))      | mixed(plain,alternative(html))           |
    mixed                       | mixed                                    |
    related(plain,png)          | related(plain,png)                       |)")) {
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
    mixed(plain,html,html[name=2])     | related(png) | mixed(plain,html[name=2]) related(png,html)
    mixed(alt(html),plain)             | related(png) | mixed(alternative(html),plain) related(png)
    html                               | related      | html related)")) {
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
  // HTML always, whatever is in it. The text of an attached file is written as it stands, so never as 7bit.
  for (const auto& [part, codePage, encoding] : rowsOf<3>(R"(
    plain[enc=7bit,body=ä]               | 65001 | quoted-printable
    plain[enc=7bit,body=ä]               | 932   | base64
    plain[enc=7bit,body=ä]               | 0     | quoted-printable
    plain[enc=7bit,body=a]               | 65001 | 7bit
    plain[enc=8bit,body=a]               | 65001 | quoted-printable
    plain[enc=Binary,body=a]             | 0     | quoted-printable
    plain[enc=8bit,body=a]               | 20127 | 7bit
    plain[enc=8bit,body=ä]:attachment    | 20127 | quoted-printable
    plain[enc=Base64,body=ä]             | 65001 | Base64
    plain[enc=Quoted-Printable,body=ä]   | 932   | Quoted-Printable
    none[enc=7bit,body=ä]                | 65001 | quoted-printable
    html[enc=7bit,body=a]                | 65001 | quoted-printable
    html[enc=8bit,body=ä]                | 20127 | 8bit
    png[enc=binary]                      | 65001 | base64
    png[enc=8bit,body=ä]                 | 65001 | 8bit
    rfc822[enc=8bit,body=ä]              | 65001 | 8bit
    mixed[enc=binary](plain)             | 65001 | binary
    multipart/unheard[enc=8bit,body=ä]   | 65001 | 8bit)")) {
    const EmailPtr mail = buildTree("mixed(plain,related(html," + part + "))");
    if (codePage != "0") mail->use_codepage(std::stoi(codePage));
    mail->safeguardBodies(quiet);
    const Email2& safe = *nodeAt(*mail, "/1/1");
    EXPECT_EQ(safe.m_transferEncoding.getString() + disagreeingFields(safe), encoding)
        << part << " in " << codePage;
  }
}

TEST(Tidy, file_names_lose_their_directories) {
  // The slash of a base64 word is a letter.
  for (const auto& [fields, disposition, name] : rowsOf<3>(R"(
    ; name="C:\b\a.png"\nContent-Disposition: attachment; filename="/tmp/b" | attachment; filename="b" | a.png
    ; name="pics/a.png"\nContent-Disposition: inline                    | inline; filename="a.png" | a.png
    ; name="pics/a.png"                                                 | (none)                   | a.png
    \nContent-Disposition: attachment; filename="a.png"; size=4 | attachment; filename="a.png"; size=4 |
    ; name="x/"\nContent-Disposition: attachment; filename="x/"         | attachment               |
    \nContent-Location: http://example.com/a.png                        | (none)                   |
    ; name="=?utf-8?B?w7/Dvw==?="                                       | (none)                   | ÿÿ
    ; name="=?utf-8?Q?dir=2Fa=C3=A4?="                                  | (none)                   | aä)")) {
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
    html[body=vi<!-- -->agra]                                | htmlviagra
    plain[body=vi<!-- -->agra]                               | plain
    html[body=]                                                | html)")) {
    const EmailPtr mail = buildTree(tree);
    const std::string before = write(*mail);
    mail->unSpamify(quiet);
    StringBuffer html;
    mail->getHtmlBodyUtf8(*mail, html, quiet);
    EXPECT_EQ(printTree(mail) + html.getString(), after) << tree;
    EXPECT_EQ(write(*mail) == before, html.isEmpty()) << tree;
  }
}

TEST(Tidy, dead_nodes_are_left_alone_in_silence) {
  const EmailPtr mail = buildTree("mixed(plain[enc=8bit,file=a/b],html[body=vi<!-- -->agra])");
  const EmailPtr other = buildTree("related");
  const std::string before = write(*mail);
  LogMemory log;
  {
    const Killed root(*mail);
    mail->moveMtMixedPlainTextToAlt(log);
    Email2::checkMoveHtmlToRelated(*mail, *other, log);
    mail->safeguardBodies(log);
    mail->removeAttachmentPaths(log);
    mail->unSpamify(log);
  }
  EXPECT_EQ(said(log) + write(*mail), before);
}

}  // namespace
}  // namespace mailtree
