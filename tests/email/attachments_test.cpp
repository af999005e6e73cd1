// Attachments: which nodes are, in which order, and how they are taken out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/dead_node.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// The information lines of a log.
std::vector<std::string> infosOf(const LogMemory& log) {
  std::vector<std::string> infos;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == LogEntry::Kind::Info) infos.push_back(entry.text);
  return infos;
}

std::string attachmentsOf(Email2& root) {
  ExtPtrArray found;
  LogNull log;
  root.attachmentIterate2(root.isMultipartMixedForAttachmentPurposes(), found, -1, log);
  return pathsOf(root, found);
}

std::vector<std::string> errorsOf(const LogMemory& log) {
  std::vector<std::string> errors;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == LogEntry::Kind::Error) errors.push_back(entry.text);
  return errors;
}

TEST(Attachments, the_decision_weighs_the_fields_of_a_node_and_logs_why) {
  const struct {
    const char* node;
    bool inMixed;
    bool isAttachment;
    const char* reason;
  } rows[] = {
      {"pdf", false, true, "Yes (content-type=application)"},
      {"plain:attachment", false, true, "Yes (disposition=attachment)"},
      {"rfc822[file=A.MHT]:attachment", false, true, "Yes (MHT)"},
      {"plain[file=a.txt]:inline", false, true, "Yes, inline AND has filename"},
      {"plain[name=a.txt]:inline", false, false, "No, inline AND no filename"},
      {"png:inline", true, true, "Yes, under multipart-mixed AND image/application/audio/video"},
      {"png:inline", false, false, "No, inline AND no filename"},
      {"plain[class=urn:content-classes:message]", true, true, "Yes, because of Content-Class header."},
      {"plain[class=URN:CONTENT-CLASSES:MESSAGE]", true, true, "Yes, because of Content-Class header."},
      {"plain[class=urn:content-classes:message]", false, false, "No, attachment is not indicated."},
      {"html[class=urn:content-classes:message]", true, false, "No, attachment is not indicated."},
      {"plain[class=urn:content-classes:task]", true, false, "No, attachment is not indicated."},
      {"plain[name=a.txt,enc=BASE64]", false, true, "Yes, has name attribute and base64 encoding."},
      {"plain[file=a.txt,enc=base64]:other", true, false, "No, attachment is not indicated."},
  };
  for (const auto& row : rows) {
    const EmailPtr node = buildTree(row.node);
    LogMemory log;
    EXPECT_EQ(node->isEmailAttachment(row.inMixed, log), row.isAttachment) << row.node << " " << row.inMixed;
    EXPECT_TRUE(log.entries().empty()) << row.node << "\n" << log.text();
    log.m_verboseLogging = true;
    EXPECT_EQ(node->isEmailAttachment(row.inMixed, log), row.isAttachment) << row.node << " " << row.inMixed;
    EXPECT_THAT(infosOf(log), testing::ElementsAre(row.reason)) << row.node << " " << row.inMixed;
  }
}

TEST(Attachments, deliberately_inline_text_with_name_and_base64_is_neither_body_nor_attachment) {
  const EmailPtr root = buildTree("mixed(plain[name=a.txt,enc=base64]:inline)");
  LogNull log;
  EXPECT_EQ(root->getNumAttachments(log), 0);
  EXPECT_EQ(root->getNumAlternatives(), 0);
}

TEST(Attachments, deliberately_text_after_an_alternative_is_body_and_attachment) {
  const EmailPtr root = buildTree("mixed(alternative(plain),html)");
  EXPECT_EQ(attachmentsOf(*root), "/1");
  EXPECT_EQ(root->getHtmlAlternative(), root->getPart(1));
}

TEST(Attachments, the_strict_test_asks_for_application_or_the_word) {
  const char* const kWebResource = "Not strict attachment because of special chars in name attribute.";
  const char* const kNoWord = "Not strict attachment because 'attachment' keyword not found in disposition.";
  const struct {
    const char* node;
    bool strict;
    const char* reason;  // null: nothing is said
  } rows[] = {
      {"mixed:attachment", false, nullptr},
      {"octet[name=get?a&b]", false, kWebResource},
      {"octet[file=get?a&b]", true, nullptr},
      {"png:ATTACHMENT", true, nullptr},
      {"plain[name=a.txt,enc=base64]", false, kNoWord},
  };
  for (const auto& row : rows) {
    const EmailPtr node = buildTree(row.node);
    EXPECT_EQ(node->isStrictAttachment(nullptr), row.strict) << row.node;
    LogMemory log;
    node->isStrictAttachment(&log);
    EXPECT_TRUE(log.entries().empty()) << row.node;
    log.m_verboseLogging = true;
    node->isStrictAttachment(&log);
    EXPECT_EQ(infosOf(log), row.reason ? std::vector<std::string>{row.reason} : std::vector<std::string>())
        << row.node;
  }
}

TEST(Attachments, the_reason_is_logged_with_what_identifies_the_node) {
  const EmailPtr node = buildTree("pdf[name=n.pdf,file=f.pdf]:inline");
  LogNull quiet;
  node->setHeaderField("Subject", "Plans", quiet);
  node->setFromFullUtf8("Ann <ann@example.com>", quiet);
  LogMemory log;  // not verbose: whoever calls decides
  node->logAttachmentReason(log, "Because.");
  std::string tags;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == LogEntry::Kind::Data) {
      EXPECT_EQ(entry.context, "attachmentReason");
      tags += entry.tag + "=" + entry.text + ";";
    }
  EXPECT_THAT(tags,
              testing::MatchesRegex("contentType=application/pdf;subject=Plans;from=.*Ann.*<ann@example.com>;"
                                    "disposition=inline;filename=f.pdf;name=n.pdf;"));
  EXPECT_THAT(infosOf(log), testing::ElementsAre("Because."));

  LogMemory bare;
  buildTree("plain")->logAttachmentReason(bare, "Because.");
  EXPECT_EQ(countMessages(bare), 2) << "empty fields are left out\n" << bare.text();
}

TEST(Attachments, are_listed_in_the_order_of_the_tree) {
  const struct {
    const char* tree;
    const char* attachments;
  } rows[] = {
      {"plain", ""},
      {"pdf", "/"},
      {"mixed(plain,pdf,png:attachment)", "/1 /2"},
      {"mixed(plain,png:inline)", "/1"},
      {"related(html,png:inline)", ""},
      {"related(html,png:attachment,pdf)", "/1 /2"},
      {"related(html,octet[name=a?b&c])", ""},
      {"fax(plain,image/x-tiff,pdf)", "/2"},
      {"mixed(alternative(plain,html),plain)", "/1"},                // follows the body
      {"mixed(related(html,png),plain,rfc822,mixed(plain))", "/1"},  // messages and multiparts do not follow
      {"mixed(plain,html)", ""},
      {"mixed(plain,mixed(plain,pdf),pdf)", "/1/1 /2"},
      {"mixed(mixed(alternative(plain)),plain)", ""},  // only a direct sibling is followed
      {"mixed(related(html,png:attachment),zip)", "/0/1 /1"},
      {"mixed(fax(plain,pdf),png)", "/0/1"},
      {"mixed(alternative(plain,html,pdf))", "/0/2"},
      {"mixed(alternative(plain,png:inline))", ""},  // an alternative is no mixed enclosure
      {"signed(png:inline,p7s)", ""},
      {"alternative(plain,mixed(html,pdf))", "/1/1"},
      {"alternative(plain,related(html,png:attachment))", "/1/1"},
      {"signed(mixed(plain,pdf),p7s)", "/0/1"},
      {"signed(plain,p7s:attachment)", "/1"},
      {"signed(plain,p7s)", ""},
      {"mixed(signed(mixed(plain,pdf),p7s),zip)", "/1"},  // signed below mixed is not looked into
      {"related(mixed(pdf),html)", ""},                   // nor is anything below related
      {"report(plain,pdf)", ""},
      {"digest(rfc822:attachment)", ""},
      {"encrypted(application/pgp-encrypted,octet)", "/0 /1"},
      {"multipart/voice-message(plain,audio/wav:inline)", "/1"},
      {"mixed(rfc822:attachment,rfc822[file=a.mht]:attachment)", "/1"},
      {"mixed(plain[name=x.gtr])", "/0"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    EXPECT_EQ(attachmentsOf(*root), row.attachments) << row.tree;
    LogNull log;
    ExtPtrArray byIndex;
    for (int i = 0; i < root->getNumAttachments(log); ++i) byIndex.appendPtr(root->getAttachment2(i, log));
    EXPECT_EQ(pathsOf(*root, byIndex), row.attachments) << row.tree;
    EXPECT_EQ(root->getAttachment(byIndex.getSize()), nullptr) << row.tree;
    EXPECT_EQ(root->getAttachment(-1), nullptr) << row.tree;
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
  const EmailPtr root = buildTree("mixed(related(html,png:attachment),plain)");
  LogMemory log;
  log.m_verboseLogging = true;
  EXPECT_EQ(root->getNumAttachments(log), 2);
  EXPECT_THAT(infosOf(log), testing::IsSupersetOf({"Yes (follows multipart/mixed)",
                                                   "Yes (multipart related/fax AND strict attachment)"}));
}

TEST(Attachments, taking_one_out_leaves_the_rest) {
  const struct {
    const char* tree;
    int index;
    const char* taken;  // "null": nothing
    const char* after;
  } rows[] = {
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
      {"signed(plain,p7s:attachment)", 0, "null", "signed(plain,p7s:attachment)"},
      {"signed(mixed(plain,pdf),p7s)", 0, "pdf", "signed(mixed(plain),p7s)"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    const EmailPtr taken(root->extractAttachment(row.index));
    EXPECT_EQ(printTree(taken), row.taken) << row.tree << " " << row.index;
    EXPECT_EQ(printTree(root), row.after) << row.tree << " " << row.index;

    const EmailPtr other = buildTree(row.tree);
    LogMemory log;
    EXPECT_EQ(other->dropSingleAttachment(row.index, log), taken != nullptr) << row.tree << " " << row.index;
    EXPECT_EQ(printTree(other), row.after) << row.tree << " " << row.index;
    EXPECT_EQ(errorsOf(log), taken ? std::vector<std::string>()
                                   : std::vector<std::string>{"Internal error in iterating attachments."})
        << row.tree << " " << row.index;
  }
}

TEST(Attachments, deliberately_listing_and_taking_out_number_differently_below_signed) {
  const EmailPtr root = buildTree("signed(pdf,mixed(plain,zip))");
  EXPECT_EQ(attachmentsOf(*root), "/0 /1/1");
  const EmailPtr taken(root->extractAttachment(0));
  EXPECT_EQ(printTree(taken), "zip");
}

TEST(Attachments, deliberately_an_inline_image_in_an_alternative_can_be_taken_out_though_it_is_not_listed) {
  const EmailPtr root = buildTree("mixed(alternative(plain,png:inline),pdf)");
  EXPECT_EQ(attachmentsOf(*root), "/1");
  const EmailPtr taken(root->extractAttachment(0));
  EXPECT_EQ(printTree(taken), "png:inline");
}

TEST(Attachments, dropping_all_removes_what_each_enclosure_calls_an_attachment) {
  const struct {
    const char* tree;
    const char* after;
  } rows[] = {
      {"mixed(plain,pdf,png:inline,html)", "mixed(plain,html)"},
      {"mixed(pdf,zip,pdf)", "mixed"},
      {"mixed(related(html,png:attachment,png:inline),mixed(pdf,plain),zip)",
       "mixed(related(html,png:inline),mixed(plain))"},
      {"related(html,pdf,png)", "related(html,png)"},
      {"alternative(plain,pdf)", "alternative(plain,pdf)"},
      {"mixed(alternative(plain,mixed(pdf)),signed(pdf))",
       "mixed(alternative(plain,mixed(pdf)),signed(pdf))"},
      {"mixed(encrypted(pdf),zip)", "mixed(encrypted(pdf))"},
      {"encrypted(octet,mixed(pdf))", "encrypted(mixed)"},
      {"alternative(related(html,pdf),mixed(plain,pdf))", "alternative(related(html),mixed(plain))"},
      {"pdf", "pdf"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    root->dropAttachments();
    EXPECT_EQ(printTree(root), row.after) << row.tree;
  }
}

TEST(Attachments, deliberately_what_follows_the_body_is_listed_but_not_dropped) {
  const EmailPtr root = buildTree("mixed(alternative(plain),html,pdf)");
  EXPECT_EQ(attachmentsOf(*root), "/1 /2");
  root->dropAttachments();
  EXPECT_EQ(printTree(root), "mixed(alternative(plain),html)");
}

TEST(Attachments, deliberately_a_dead_child_ends_dropping_for_the_node_where_it_stands) {
  const EmailPtr root = buildTree("mixed(mixed(pdf,plain,zip,mixed(pdf)),mixed(pdf,plain),zip)");
  {
    const Killed dead(*nodeAt(*root, "/0/1"));
    root->dropAttachments();
  }
  EXPECT_EQ(printTree(root), "mixed(mixed(pdf,plain,mixed(pdf)),mixed(plain))");
}

TEST(Attachments, dropping_for_mht_keeps_what_the_html_refers_to) {
  const char* const kHtml = "<img src=\"cid:logo@x\">";
  const struct {
    const char* tree;
    const char* after;
  } rows[] = {
      {"related(html,png[cid=<logo@x>]:attachment,png[cid=<other@x>]:attachment)",
       "related(html,png:attachment)"},
      {"related(html,png[cid=<LOGO@x>]:attachment)", "related(html)"},
      {"related(html,png:attachment,png)", "related(html,png)"},
      {"mixed(alternative(plain,pdf),plain:attachment,pdf)", "mixed(alternative(plain,pdf))"},
      {"alternative(html,pdf)", "alternative(html)"},  // strict attachments go whatever the enclosure
      {"mixed(related(html,pdf),mixed(zip),signed(pdf))", "mixed(related(html),mixed,signed(pdf))"},
      {"mixed(related(html,octet[cid=logo@x]))", "mixed(related(html,octet))"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    StringBuffer html(kHtml);
    LogMemory log;
    root->dropAttachmentsForTempMht(html, log);
    EXPECT_EQ(printTree(root), row.after) << row.tree;
    EXPECT_TRUE(log.entries().empty()) << row.tree << "\n" << log.text();
  }
}

TEST(Attachments, dropping_for_mht_says_what_goes_and_what_stays_when_asked) {
  const EmailPtr root = buildTree("related(html,png[cid=<logo@x>]:attachment,pdf)");
  StringBuffer html("cid:logo@x");
  LogMemory log;
  log.m_verboseLogging = true;
  root->dropAttachmentsForTempMht(html, log);
  std::vector<std::string> lines;
  for (const LogEntry& entry : log.entries())
    lines.push_back(entry.context + "|" + entry.tag + "|" + entry.text);
  EXPECT_THAT(lines, testing::IsSupersetOf({
                         "||Not removing attachment because Content-ID is found in HTML body.",
                         "|contentId|logo@x",
                         "removingStrictAttachment|contentType|application/pdf",
                         "removingStrictAttachment|contentDisposition|",
                         "removingStrictAttachment|contentId|",
                         "removingStrictAttachment|contentLocation|",
                     }));
}

TEST(Attachments, deliberately_a_dead_child_ends_dropping_for_mht_wholly) {
  const EmailPtr root = buildTree("mixed(mixed(pdf,plain,zip),mixed(pdf,plain),zip)");
  StringBuffer html;
  LogNull log;
  {
    const Killed dead(*nodeAt(*root, "/0/1"));
    root->dropAttachmentsForTempMht(html, log);
  }
  EXPECT_EQ(printTree(root), "mixed(mixed(pdf,plain),mixed(pdf,plain))");
}

TEST(Attachments, nth_part_of_a_type_goes_level_by_level) {
  const char* const kTree =
      "mixed(related(html,png[body=deep]:inline),png[body=near]:attachment,png[body=second]:inline)";
  const struct {
    const char* tree;
    int index;
    const char* type;
    bool inlineOnly;
    bool excludeAttachments;
    const char* found;
    int count;
  } rows[] = {
      {kTree, 0, "image/png", false, false, "/1", 1},
      {kTree, 1, "IMAGE/PNG", false, false, "/2", 2},
      {kTree, 2, "image/*", false, false, "/0/1", 3},
      {kTree, 3, "image/*", false, false, "none", 3},
      {kTree, 1, "image/*", false, true, "/0/1", 2},
      {kTree, 0, "image/*", true, false, "/2", 1},
      {kTree, 0, "*", false, false, "/1", 1},
      {kTree, 0, "multipart/related", false, false, "none", 0},  // a node with children never matches
      {kTree, -1, "image/png", false, false, "none", 3},
      {kTree, 0, nullptr, false, false, "none", 0},
      {"png:attachment", 0, "image/*", true, true, "/", 1},  // a lone part is found whatever it says
      {"png:attachment", 1, "image/*", false, false, "none", 0},
      {"png:attachment", 0, "text/*", false, false, "none", 0},
      {"mixed(mixed,pdf)", 0, "multipart/*", false, false, "/0", 1},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    LogNull log;
    int count = 99;
    const Email2* const found =
        root->getNthPartOfType(row.index, row.type, row.inlineOnly, row.excludeAttachments, count, log);
    const std::string what =
        std::string(row.tree) + " " + (row.type ? row.type : "null") + " " + std::to_string(row.index);
    EXPECT_EQ(pathOf(*root, found), row.found) << what;
    EXPECT_EQ(count, row.count) << what;
  }
}

TEST(Attachments, walks_pass_over_dead_and_missing_children) {
  const EmailPtr root = buildTree("mixed(pdf,mixed(png),png)");
  root->m_subParts.insertAt(0, nullptr);
  const Killed first(*root->getPart(1));
  const Killed second(*root->getPart(2));
  LogNull log;
  int count = 0;
  EXPECT_EQ(pathOf(*root, root->getNthPartOfType(0, "*", false, false, count, log)), "/3");
  root->getPart(3)->m_disposition.setString("attachment");
  EXPECT_EQ(attachmentsOf(*root), "/3");
}

TEST(Attachments, the_html_part_is_followed_through_first_parts) {
  const struct {
    const char* tree;
    const char* found;
  } rows[] = {
      {"html", "/"},
      {"plain", "none"},
      {"mixed(related(html,png),pdf)", "/0/0"},
      {"mixed(alternative(plain,related(html)),pdf)", "/0/1/0"},
      {"mixed(plain,html)", "none"},
      {"mixed", "none"},
      {"alternative(plain)", "none"},
      {"report(html)", "/0"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    EXPECT_EQ(pathOf(*root, root->findHtmlPart()), row.found) << row.tree;
  }
}

TEST(Attachments, walks_survive_a_chain_deeper_than_the_call_stack) {
  const EmailPtr root = buildChain(100'000, "multipart/mixed", "application/pdf");
  LogNull log;
  EXPECT_EQ(root->getNumAttachments(log), 1);
  int count = 0;
  EXPECT_EQ(root->getNthPartOfType(0, "application/*", false, false, count, log), root->getAttachment(0));
  StringBuffer html;
  const EmailPtr taken(root->extractAttachment(0));
  EXPECT_EQ(printTree(taken), "pdf");
  root->dropAttachments();
  root->dropAttachmentsForTempMht(html, log);
  EXPECT_EQ(root->getNumAttachments(log), 0);
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
    EXPECT_FALSE(node->isEmailAttachment(true, log));
    EXPECT_FALSE(node->isStrictAttachment(&log));
    node->logAttachmentReason(log, "Because.");
    EXPECT_FALSE(node->isMultipartMixedForAttachmentPurposes() || node->isMultipartFax());
    EXPECT_FALSE(node->attachmentIterate2(true, list, -1, log));
    EXPECT_EQ(node->getNumAttachments(log), 0);
    EXPECT_EQ(node->getAttachment2(0, log), nullptr);
    EXPECT_EQ(node->extractAttachment(0), nullptr);
    EXPECT_FALSE(node->dropSingleAttachment(0, log));
    node->dropAttachments();
    node->dropAttachmentsForTempMht(html, log);
    EXPECT_EQ(node->getNthPartOfType(0, "*", false, false, count, log), nullptr);
    EXPECT_EQ(node->findHtmlPart(), nullptr);
  }
  EXPECT_EQ(count, 7);
  EXPECT_EQ(printTree(node), "mixed(plain,pdf)");
  EXPECT_EQ(countMessages(log), 0) << log.text();
}

}  // namespace
}  // namespace mailtree
