// Attachments: which nodes are, in which order, and how they are taken out.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

std::string attachmentsOf(Email2& root) {
  ExtPtrArray found;
  for (int i = 0; i < root.getNumAttachments(quiet); ++i) found.appendPtr(root.getAttachment2(i, quiet));
  EXPECT_FALSE(root.getAttachment(found.getSize()) || root.getAttachment(-1));
  return pathsOf(root, found);
}

TEST(Attachments, the_decision_weighs_the_fields_of_a_node) {
  const auto see = [](Email2& node) {
    const bool inMixed = node.isEmailAttachment(true, quiet), alone = node.isEmailAttachment(false, quiet);
    return inMixed ? alone ? "always" : "in mixed" : alone ? "alone" : "never";
  };
  expectOfTrees(see, R"(
      # Deliberately no attachment, and no body either.
      plain[name=a.txt,enc=base64]:inline | never
      plain[file=a.txt]:inline | always       plain[name=a.txt,enc=BASE64] | always     png:inline | in mixed
      plain[class=urn:content-classes:message] | in mixed   html[class=urn:content-classes:message] | never
      plain[class=URN:CONTENT-CLASSES:MESSAGE] | in mixed   plain[class=urn:content-classes:task] | never)");
}

TEST(Attachments, the_strict_test_asks_for_application_or_the_word) {
  LogMemory log;
  expectOfTrees([&](Email2& node) { return node.isStrictAttachment(&log) ? "yes" : "no"; },
                "png:ATTACHMENT | yes   octet[name=get?a&b] | no   octet | yes   plain | no");
  EXPECT_EQ(log.text(), "");
  log.m_verboseLogging = true;
  EXPECT_FALSE(buildTree("plain")->isStrictAttachment(&log));
  EXPECT_EQ(log.text(), "Not strict attachment because 'attachment' keyword not found in disposition.\n");
}

TEST(Attachments, the_reason_is_logged_with_what_identifies_the_node) {
  const EmailPtr node = buildTree("pdf[name=n.pdf,file=f.pdf]:inline");
  node->setHeaderField("Subject", "Plans", quiet);
  node->setFromFullUtf8("Ann <ann@example.com>", quiet);
  LogMemory log;  // not verbose: whoever calls decides
  node->logAttachmentReason(log, "Because.");
  buildTree("plain")->logAttachmentReason(log, "Bare.");
  EXPECT_EQ(log.text(),
            "attachmentReason:\n"
            "  contentType: application/pdf\n"
            "  subject: Plans\n"
            "  from: Ann <ann@example.com>\n"
            "  disposition: inline\n"
            "  filename: f.pdf\n"
            "  name: n.pdf\n"
            "  Because.\n"
            "attachmentReason:\n"
            "  contentType: text/plain\n"
            "  Bare.\n");
}

TEST(Attachments, are_listed_in_the_order_of_the_tree) {
  expectOfTrees(attachmentsOf, R"(
      plain |     pdf | /     mixed(plain,pdf,png:attachment) | /1 /2     mixed(plain,png:inline) | /1
      related(html,png:attachment,png:inline,pdf) | /1 /3                 fax(plain,image/x-tiff,pdf) | /2
      # Parts follow the body of a mixed message, but no messages and multiparts, and only direct siblings.
      mixed(alternative(plain,html),plain) | /1     mixed(related(html,png),plain,rfc822,mixed(plain)) | /1
      mixed(mixed(alternative(plain)),plain) |      mixed(plain,mixed(plain,pdf),pdf) | /1/1 /2
      mixed(related(html,png:attachment),zip) | /0/1 /1                   mixed(fax(plain,pdf),png) | /0/1
      # An alternative is no mixed enclosure; signed below mixed and all below related are not looked into.
      mixed(alternative(plain,png:inline)) |        mixed(alternative(plain,html,pdf)) | /0/2
      alternative(plain,mixed(html,pdf),related(html,png:attachment)) | /1/1 /2/1
      signed(png:inline,p7s) |                      signed(mixed(plain,pdf),p7s:attachment) | /0/1 /1
      mixed(signed(mixed(plain,pdf),p7s),zip) | /1  related(mixed(pdf),html) |     report(plain,pdf) |
      encrypted(octet,octet) | /0 /1                multipart/voice-message(plain,audio/wav:inline) | /1
      mixed(rfc822:attachment,rfc822[file=a.mht]:attachment) | /1
      multipart/*(plain,png:inline) | /1)");
}

TEST(Attachments, deliberately_signed_is_matched_with_regard_to_case_and_fax_is_not) {
  const EmailPtr root = buildTree("signed(pdf,p7s)");
  EXPECT_EQ(attachmentsOf(*root), "/0");
  root->m_contentType.m_type.setString("Multipart/Signed");
  EXPECT_EQ(attachmentsOf(*root), "");
  root->m_contentType.m_type.setString("Multipart/Fax-Message");
  EXPECT_EQ(attachmentsOf(*root), "/0 /1");
}

TEST(Attachments, reasons_are_logged_when_asked) {
  const EmailPtr root = buildTree("mixed(png:inline,related(html,png:attachment),plain)");
  LogMemory silent, log;
  log.m_verboseLogging = true;
  EXPECT_EQ(root->getNumAttachments(silent), 3);
  EXPECT_EQ(silent.text(), "");
  EXPECT_EQ(root->getNumAttachments(log), 3);
  for (const char* reason :
       {"Yes (follows multipart/mixed)", "Yes (multipart related/fax AND strict attachment)"})
    EXPECT_TRUE(contains(log.text(), reason)) << reason;
}

TEST(Attachments, taking_one_out_leaves_the_rest) {
  const auto rows = casesOf<4>(R"(
      mixed(plain,pdf,zip) | 1 | zip | mixed(plain,pdf)
      mixed(plain,pdf) | 1 | null | mixed(plain,pdf)         mixed(plain,pdf) | -1 | null | mixed(plain,pdf)
      mixed(alternative(plain),plain,pdf) | 0 | plain | mixed(alternative(plain),pdf)
      mixed(related(html,png:attachment),pdf) | 0 | png:attachment | mixed(related(html),pdf)
      mixed(mixed(pdf),mixed(zip,png:inline)) | 2 | png:inline | mixed(mixed(pdf),mixed(zip))
      # An only child stays, and so does the root.
      alternative(plain,pdf) | 0 | pdf | alternative(plain)  alternative(pdf) | 0 | null | alternative(pdf)
      pdf | 0 | null | pdf
      signed(mixed(plain,pdf),p7s:attachment) | 0 | pdf | signed(mixed(plain),p7s:attachment)
      signed(mixed(plain,pdf),p7s:attachment) | 1 | null | signed(mixed(plain,pdf),p7s:attachment)
      # Deliberately numbered otherwise than listed, which is /0 and /1/1, and found though it is not listed.
      signed(pdf,mixed(plain,zip)) | 0 | zip | signed(pdf,mixed(plain))
      mixed(alternative(plain,png:inline),pdf) | 0 | png:inline | mixed(alternative(plain),pdf))");
  for (const auto& [tree, number, taken, after] : rows) {
    const int index = std::stoi(number);
    const EmailPtr root = buildTree(tree), other = buildTree(tree);
    const EmailPtr out(root->extractAttachment(index));
    EXPECT_EQ(printTree(out), taken) << tree << " " << index;
    EXPECT_EQ(printTree(root), after);
    LogMemory log;
    EXPECT_EQ(other->dropSingleAttachment(index, log), out != nullptr) << tree << " " << index;
    EXPECT_EQ(printTree(other), after);
    EXPECT_EQ(contains(log.text(), "Internal error in iterating attachments."), !out) << tree << " " << index;
  }
}

TEST(Attachments, dropping_all_removes_what_each_enclosure_calls_an_attachment) {
  const auto see = [](Email2& root) {
    root.dropAttachments();
    return printTree(root);
  };
  expectOfTrees(see, R"(
      mixed(plain,pdf,png:inline,html,zip) | mixed(plain,html)  alternative(pdf) | alternative(pdf)  pdf | pdf
      mixed(related(html,pdf,png:inline),mixed(pdf,plain)) | mixed(related(html,png:inline),mixed(plain))
      mixed(alternative(plain,mixed(pdf)),signed(pdf)) | mixed(alternative(plain,mixed(pdf)),signed(pdf))
      alternative(related(html,pdf),mixed(plain,pdf)) | alternative(related(html),mixed(plain))
      mixed(encrypted(pdf),zip) | mixed(encrypted(pdf))         encrypted(octet,mixed(pdf)) | encrypted(mixed)
      # Deliberately not what merely follows the body.
      mixed(alternative(plain),html,pdf) | mixed(alternative(plain),html))");
}

TEST(Attachments, deliberately_a_dead_child_ends_dropping_for_its_parent_or_for_mht_wholly) {
  StringBuffer html;
  const EmailPtr root = buildTree("mixed(mixed(pdf,plain,zip,mixed(pdf)),mixed(pdf,plain),zip)");
  const EmailPtr forMht = buildTree("mixed(mixed(pdf,plain,zip),mixed(pdf,plain),zip)");
  {
    const Killed dead(*nodeAt(*root, "/0/1")), deadToo(*nodeAt(*forMht, "/0/1"));
    root->dropAttachments();
    forMht->dropAttachmentsForTempMht(html, quiet);
  }
  EXPECT_EQ(printTree(root), "mixed(mixed(pdf,plain,mixed(pdf)),mixed(plain))");
  EXPECT_EQ(printTree(forMht), "mixed(mixed(pdf,plain),mixed(pdf,plain))");
}

TEST(Attachments, dropping_for_mht_keeps_what_the_html_refers_to) {
  const auto see = [](Email2& root) {
    StringBuffer html("<img src=\"cid:logo@x\">");
    LogMemory log;
    root.dropAttachmentsForTempMht(html, log);
    EXPECT_EQ(log.text(), "");
    return printTree(root);
  };
  expectOfTrees(see, R"(
      related(html,png[cid=<logo@x>]:attachment,zip[cid=<other@x>]) | related(html,png:attachment)
      related(html,png[cid=<LOGO@x>]:attachment) | related(html)    related(html,pdf,png) | related(html,png)
      # Strict attachments go from any enclosure.
      alternative(html,pdf) | alternative(html)
      mixed(related(html,pdf),mixed(zip),signed(pdf)) | mixed(related(html),mixed,signed(pdf)))");
}

TEST(Attachments, dropping_for_mht_says_what_goes_and_what_stays_when_asked) {
  const EmailPtr root = buildTree("related(png[cid=<logo@x>]:attachment,pdf)");
  StringBuffer html("cid:logo@x");
  LogMemory log;
  log.m_verboseLogging = true;
  root->dropAttachmentsForTempMht(html, log);
  EXPECT_EQ(log.text(),
            "removingStrictAttachment:\n"
            "  contentType: application/pdf\n"
            "  contentDisposition: \n"
            "  contentId: \n"
            "  contentLocation: \n"
            "Not removing attachment because Content-ID is found in HTML body.\n"
            "contentId: logo@x\n");
}

TEST(Attachments, nth_part_of_a_type_goes_level_by_level) {
  // Tree ("..." is the first), index, type and what is left out; the part found and how many were passed.
  const auto rows = casesOf<5>(R"(
      ... | 0 | image/png | | /1 of 1           ... | 1 | IMAGE/PNG | | /2 of 2
      ... | 2 | image/* | | /0/1 of 3           ... | -1 | image/png | | none of 3
      ... | 1 | image/* | attached | /0/1 of 2  ... | 0 | image/* | all but inline | /2 of 1
      # A node with children never matches, and a lone part of any type is found.
      ... | 0 | multipart/related | | none of 0     mixed(mixed,pdf) | 0 | multipart/* | | /0 of 1
      png:attachment | 0 | image/* | attached | / of 1
      png:attachment | 1 | image/* | | none of 0    png:attachment | 0 | text/* | | none of 0)");
  int count = 99;
  for (const auto& [tree, index, type, left, expected] : rows) {
    const EmailPtr root =
        buildTree(tree == "..." ? "mixed(related(html,png:inline),png:attachment,png:inline)" : tree);
    const Email2* const part = root->getNthPartOfType(
        std::stoi(index), type.c_str(), left == "all but inline", left == "attached", count, quiet);
    EXPECT_EQ(pathOf(*root, part) + " of " + std::to_string(count), expected) << tree << type;
  }
  EXPECT_FALSE(buildTree("png")->getNthPartOfType(0, nullptr, false, false, count, quiet));
}

TEST(Attachments, walks_pass_over_dead_and_missing_children) {
  const EmailPtr root = buildTree("mixed(pdf,mixed(png),png:attachment)");
  root->m_subParts.insertAt(0, nullptr);
  const Killed first(*root->getPart(1)), second(*root->getPart(2));
  int count = 0;
  EXPECT_EQ(pathOf(*root, root->getNthPartOfType(0, "*", false, false, count, quiet)), "/3");
  EXPECT_EQ(attachmentsOf(*root), "/3");
}

TEST(Attachments, the_html_part_is_followed_through_first_parts) {
  expectOfTrees([](Email2& root) { return pathOf(root, root.findHtmlPart()); }, R"(
      mixed(related(html,png),pdf) | /0/0     mixed(alternative(plain,related(html)),pdf) | /0/1/0
      plain | none      mixed(plain,html) | none      mixed | none      alternative(plain) | none)");
}

}  // namespace
}  // namespace mailtree
