// Attachments: which nodes are, in which order, and how they are taken out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/dead_node.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using Kind = LogEntry::Kind;
using Texts = std::vector<std::string>;
using testing::ElementsAre;
using testing::IsSupersetOf;

LogNull quiet;

Texts textsOf(const LogMemory& log, Kind kind) {
  Texts texts;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == kind) texts.push_back(entry.text);
  return texts;
}

std::string attachmentsOf(Email2& root) {
  ExtPtrArray found;
  root.attachmentIterate2(root.isMultipartMixedForAttachmentPurposes(), found, -1, quiet);
  return pathsOf(root, found);
}

TEST(Attachments, the_decision_weighs_the_fields_of_a_node_and_logs_why) {
  const char* const kNo = "No, attachment is not indicated.";
  const std::tuple<const char*, bool, const char*> rows[] = {
      {"plain[file=a.txt]:inline", false, "Yes, inline AND has filename"},
      {"png:inline", true, "Yes, under multipart-mixed AND image/application/audio/video"},
      {"png:inline", false, "No, inline AND no filename"},
      {"plain[class=urn:content-classes:message]", true, "Yes, because of Content-Class header."},
      {"plain[class=URN:CONTENT-CLASSES:MESSAGE]", true, "Yes, because of Content-Class header."},
      {"plain[class=urn:content-classes:message]", false, kNo},
      {"html[class=urn:content-classes:message]", true, kNo},
      {"plain[class=urn:content-classes:task]", true, kNo},
      {"plain[name=a.txt,enc=BASE64]", false, "Yes, has name attribute and base64 encoding."},
  };
  for (const auto& [tree, inMixed, reason] : rows) {
    const EmailPtr node = buildTree(tree);
    LogMemory log;
    EXPECT_EQ(node->isEmailAttachment(inMixed, log), *reason == 'Y') << tree << " " << inMixed;
    EXPECT_EQ(log.text(), "");
    log.m_verboseLogging = true;
    EXPECT_EQ(node->isEmailAttachment(inMixed, log), *reason == 'Y') << tree << " " << inMixed;
    EXPECT_THAT(textsOf(log, Kind::Info), ElementsAre(reason)) << tree << " " << inMixed;
  }
}

TEST(Attachments, deliberately_inline_text_with_name_and_base64_is_neither_body_nor_attachment) {
  const EmailPtr root = buildTree("mixed(plain[name=a.txt,enc=base64]:inline)");
  EXPECT_EQ(root->getNumAttachments(quiet) + root->getNumAlternatives(), 0);
}

TEST(Attachments, the_strict_test_asks_for_application_or_the_word) {
  const std::tuple<const char*, bool, const char*> rows[] = {
      {"octet[name=get?a&b]", false, "Not strict attachment because of special chars in name attribute.\n"},
      {"png:ATTACHMENT", true, ""},
      {"plain", false, "Not strict attachment because 'attachment' keyword not found in disposition.\n"},
  };
  for (const auto& [tree, strict, reason] : rows) {
    const EmailPtr node = buildTree(tree);
    LogMemory log;
    EXPECT_EQ(node->isStrictAttachment(nullptr), strict) << tree;
    EXPECT_EQ(node->isStrictAttachment(&log), strict) << tree;
    EXPECT_EQ(log.text(), "");
    log.m_verboseLogging = true;
    node->isStrictAttachment(&log);
    EXPECT_EQ(log.text(), reason);
  }
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
  const std::pair<const char*, const char*> rows[] = {
      {"plain", ""},
      {"pdf", "/"},
      {"mixed(plain,pdf,png:attachment)", "/1 /2"},
      {"mixed(plain,png:inline)", "/1"},
      {"related(html,png:attachment,png:inline,pdf)", "/1 /3"},
      {"fax(plain,image/x-tiff,pdf)", "/2"},
      {"mixed(alternative(plain,html),plain)", "/1"},                // follows the body
      {"mixed(related(html,png),plain,rfc822,mixed(plain))", "/1"},  // messages and multiparts do not follow
      {"mixed(plain,mixed(plain,pdf),pdf)", "/1/1 /2"},
      {"mixed(mixed(alternative(plain)),plain)", ""},  // only a direct sibling is followed
      {"mixed(related(html,png:attachment),zip)", "/0/1 /1"},
      {"mixed(fax(plain,pdf),png)", "/0/1"},
      {"mixed(alternative(plain,html,pdf))", "/0/2"},
      {"mixed(alternative(plain,png:inline))", ""},  // an alternative is no mixed enclosure
      {"signed(png:inline,p7s)", ""},
      {"alternative(plain,mixed(html,pdf),related(html,png:attachment))", "/1/1 /2/1"},
      {"signed(mixed(plain,pdf),p7s:attachment)", "/0/1 /1"},
      {"mixed(signed(mixed(plain,pdf),p7s),zip)", "/1"},  // signed below mixed is not looked into
      {"related(mixed(pdf),html)", ""},                   // nor is anything below related
      {"report(plain,pdf)", ""},
      {"encrypted(application/pgp-encrypted,octet)", "/0 /1"},
      {"multipart/voice-message(plain,audio/wav:inline)", "/1"},
      {"mixed(rfc822:attachment,rfc822[file=a.mht]:attachment)", "/1"},
  };
  for (const auto& [tree, attachments] : rows) {
    const EmailPtr root = buildTree(tree);
    EXPECT_EQ(attachmentsOf(*root), attachments) << tree;
    ExtPtrArray byIndex;
    for (int i = 0; i < root->getNumAttachments(quiet); ++i)
      byIndex.appendPtr(root->getAttachment2(i, quiet));
    EXPECT_EQ(pathsOf(*root, byIndex), attachments) << tree;
    EXPECT_FALSE(root->getAttachment(byIndex.getSize()) || root->getAttachment(-1)) << tree;
  }
}

TEST(Attachments, deliberately_signed_is_matched_with_regard_to_case_and_fax_is_not) {
  const EmailPtr root = buildTree("signed(pdf,p7s)");
  EXPECT_EQ(attachmentsOf(*root), "/0");
  root->m_contentType.m_type.setString("Multipart/Signed");
  EXPECT_EQ(attachmentsOf(*root), "");
  root->m_contentType.m_type.setString("Multipart/Fax-Message");
  EXPECT_EQ(attachmentsOf(*root), "/0 /1");
}

TEST(Attachments, the_place_of_an_attachment_is_logged_as_its_reason) {
  LogMemory log;
  log.m_verboseLogging = true;
  EXPECT_EQ(buildTree("mixed(related(html,png:attachment),plain)")->getNumAttachments(log), 2);
  EXPECT_THAT(textsOf(log, Kind::Info), IsSupersetOf({"Yes (follows multipart/mixed)",
                                                      "Yes (multipart related/fax AND strict attachment)"}));
}

TEST(Attachments, taking_one_out_leaves_the_rest) {
  const std::tuple<const char*, int, const char*, const char*> rows[] = {
      {"mixed(plain,pdf,zip)", 0, "pdf", "mixed(plain,zip)"},
      {"mixed(plain,pdf,zip)", 1, "zip", "mixed(plain,pdf)"},
      {"mixed(plain,pdf,zip)", 2, "null", "mixed(plain,pdf,zip)"},
      {"mixed(plain,pdf,zip)", -1, "null", "mixed(plain,pdf,zip)"},
      {"mixed(alternative(plain),plain,pdf)", 0, "plain", "mixed(alternative(plain),pdf)"},
      {"mixed(related(html,png:attachment),pdf)", 0, "png:attachment", "mixed(related(html),pdf)"},
      {"mixed(related(html,png:attachment),pdf)", 1, "pdf", "mixed(related(html,png:attachment))"},
      {"mixed(mixed(pdf),mixed(zip,png:inline))", 2, "png:inline", "mixed(mixed(pdf),mixed(zip))"},
      {"alternative(plain,pdf)", 0, "pdf", "alternative(plain)"},
      {"alternative(pdf)", 0, "null", "alternative(pdf)"},  // an only child stays
      {"pdf", 0, "null", "pdf"},                            // and so does the root
      {"signed(mixed(plain,pdf),p7s:attachment)", 0, "pdf", "signed(mixed(plain),p7s:attachment)"},
      {"signed(mixed(plain,pdf),p7s:attachment)", 1, "null", "signed(mixed(plain,pdf),p7s:attachment)"},
      // deliberately numbered otherwise than listed: /0 and /1/1
      {"signed(pdf,mixed(plain,zip))", 0, "zip", "signed(pdf,mixed(plain))"},
      // deliberately, though it is not listed
      {"mixed(alternative(plain,png:inline),pdf)", 0, "png:inline", "mixed(alternative(plain),pdf)"},
  };
  for (const auto& [tree, index, taken, after] : rows) {
    const EmailPtr root = buildTree(tree), other = buildTree(tree);
    const EmailPtr out(root->extractAttachment(index));
    EXPECT_EQ(printTree(out), taken) << tree << " " << index;
    EXPECT_EQ(printTree(root), after) << index;
    LogMemory log;
    EXPECT_EQ(other->dropSingleAttachment(index, log), out != nullptr) << tree << " " << index;
    EXPECT_EQ(printTree(other), after) << index;
    EXPECT_EQ(textsOf(log, Kind::Error), out ? Texts() : Texts{"Internal error in iterating attachments."});
  }
}

TEST(Attachments, dropping_all_removes_what_each_enclosure_calls_an_attachment) {
  const std::pair<const char*, const char*> rows[] = {
      {"mixed(plain,pdf,png:inline,html,zip)", "mixed(plain,html)"},
      {"mixed(related(html,png:attachment,png:inline),mixed(pdf,plain),zip)",
       "mixed(related(html,png:inline),mixed(plain))"},
      {"alternative(plain,pdf)", "alternative(plain,pdf)"},
      {"mixed(alternative(plain,mixed(pdf)),signed(pdf))",
       "mixed(alternative(plain,mixed(pdf)),signed(pdf))"},
      {"mixed(encrypted(pdf),zip)", "mixed(encrypted(pdf))"},
      {"encrypted(octet,mixed(pdf))", "encrypted(mixed)"},
      {"alternative(related(html,pdf),mixed(plain,pdf))", "alternative(related(html),mixed(plain))"},
      {"mixed(alternative(plain),html,pdf)",
       "mixed(alternative(plain),html)"},  // deliberately not what follows
      {"pdf", "pdf"},
  };
  for (const auto& [tree, after] : rows) {
    const EmailPtr root = buildTree(tree);
    root->dropAttachments();
    EXPECT_EQ(printTree(root), after);
  }
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
  const std::pair<const char*, const char*> rows[] = {
      {"related(html,png[cid=<logo@x>]:attachment,png[cid=<other@x>]:attachment)",
       "related(html,png:attachment)"},
      {"related(html,png[cid=<LOGO@x>]:attachment)", "related(html)"},
      {"related(html,png:attachment,png)", "related(html,png)"},
      {"alternative(html,pdf)", "alternative(html)"},  // strict attachments go whatever the enclosure
      {"mixed(related(html,pdf),mixed(zip),signed(pdf),alternative(pdf))",
       "mixed(related(html),mixed,signed(pdf),alternative(pdf))"},
  };
  for (const auto& [tree, after] : rows) {
    const EmailPtr root = buildTree(tree);
    StringBuffer html("<img src=\"cid:logo@x\">");
    LogMemory log;
    root->dropAttachmentsForTempMht(html, log);
    EXPECT_EQ(printTree(root), after) << tree;
    EXPECT_EQ(log.text(), "") << tree;
  }
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
  // Level by level: /1 is attached, /2 and /0/1 are inline.
  const char* const kTree = "mixed(related(html,png:inline),png:attachment,png:inline)";
  const std::tuple<const char*, int, const char*, bool, bool, const char*, int> rows[] = {
      {kTree, 0, "image/png", false, false, "/1", 1},
      {kTree, 1, "IMAGE/PNG", false, false, "/2", 2},
      {kTree, 2, "image/*", false, false, "/0/1", 3},
      {kTree, 3, "image/*", false, false, "none", 3},
      {kTree, 1, "image/*", false, true, "/0/1", 2},
      {kTree, 0, "image/*", true, false, "/2", 1},
      {kTree, 0, "multipart/related", false, false, "none", 0},  // a node with children never matches
      {kTree, -1, "image/png", false, false, "none", 3},
      {kTree, 0, nullptr, false, false, "none", 0},
      {"png:attachment", 0, "image/*", true, true, "/", 1},  // a lone part is found whatever it says
      {"png:attachment", 1, "image/*", false, false, "none", 0},
      {"png:attachment", 0, "text/*", false, false, "none", 0},
      {"mixed(mixed,pdf)", 0, "multipart/*", false, false, "/0", 1},
  };
  for (const auto& [tree, index, type, inlineOnly, excludeAttachments, found, expectedCount] : rows) {
    const EmailPtr root = buildTree(tree);
    int count = 99;
    const Email2* const part =
        root->getNthPartOfType(index, type, inlineOnly, excludeAttachments, count, quiet);
    EXPECT_EQ(pathOf(*root, part), found) << tree << " " << viewOf(type) << " " << index;
    EXPECT_EQ(count, expectedCount) << tree << " " << viewOf(type) << " " << index;
  }
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
  const std::pair<const char*, const char*> rows[] = {
      {"plain", "none"},
      {"mixed(related(html,png),pdf)", "/0/0"},
      {"mixed(alternative(plain,related(html)),pdf)", "/0/1/0"},
      {"mixed(plain,html)", "none"},
      {"mixed", "none"},
      {"alternative(plain)", "none"},
  };
  for (const auto& [tree, found] : rows) {
    const EmailPtr root = buildTree(tree);
    EXPECT_EQ(pathOf(*root, root->findHtmlPart()), found) << tree;
  }
}

TEST(Attachments, a_dead_node_answers_nothing_and_logs_no_message) {
  const EmailPtr node = buildTree("mixed(plain,pdf)");
  LogMemory log;
  log.m_verboseLogging = true;
  StringBuffer html;
  ExtPtrArray list;
  int count = 7;
  {
    const Killed dead(*node);
    EXPECT_FALSE(node->isEmailAttachment(true, log) || node->isStrictAttachment(&log));
    node->logAttachmentReason(log, "Because.");
    EXPECT_FALSE(node->isMultipartMixedForAttachmentPurposes() || node->isMultipartFax());
    EXPECT_FALSE(node->attachmentIterate2(true, list, -1, log));
    EXPECT_FALSE(node->getNumAttachments(log) || node->getAttachment2(0, log));
    EXPECT_FALSE(node->extractAttachment(0) || node->dropSingleAttachment(0, log));
    node->dropAttachments();
    node->dropAttachmentsForTempMht(html, log);
    EXPECT_FALSE(node->getNthPartOfType(0, "*", false, false, count, log) || node->findHtmlPart());
  }
  EXPECT_EQ(count, 7);
  EXPECT_EQ(printTree(node), "mixed(plain,pdf)");
  EXPECT_EQ(countMessages(log), 0) << log.text();
}

}  // namespace
}  // namespace mailtree
