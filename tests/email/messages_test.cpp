// Attached messages and digests: which parts count, in which order, and what becomes of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// A tree in which "@A" is an attached message with the subject and the file name A.
EmailPtr buildWithMessages(const std::string& tree) {
  std::string whole;
  for (std::size_t i = 0; i < tree.size(); ++i) {
    if (tree[i] != '@') {
      whole += tree[i];
      continue;
    }
    const std::string name(1, tree[++i]);
    whole += "rfc822[file=" + name + ",body=Subject: " + name + "]";
  }
  return buildTree(whole);
}

EmailPtr attachedMessage(Email2& root, int index) {
  int counter = 0;
  SystemCerts certs;
  LogNull log;
  return EmailPtr(root.getAttachedMessage(index, counter, certs, log));
}

EmailPtr digestEntry(Email2& root, int index) {
  SystemCerts certs;
  LogNull log;
  return EmailPtr(root.getNthDigest(index, certs, log));
}

std::string subjectAt(Email2& root, int index) {
  const EmailPtr message = attachedMessage(root, index);
  return message ? field(*message, "Subject") : "-";
}

std::string fileNameAt(Email2& root, int index) {
  int counter = 0;
  LogNull log;
  XString field("content-disposition"), attribute("FILENAME"), name("what was there");
  const bool found = root.getAttachedMessageAttr(index, counter, field, attribute, log, name);
  EXPECT_EQ(found, !name.isEmpty());
  return found ? name.getUtf8() : "-";
}

/// The message that is gone from the tree afterwards.
std::string removedAt(const std::string& tree, int index) {
  const EmailPtr root = buildWithMessages(tree);
  const std::string before = printTree(root, TreeDetail::names);
  const bool removed = root->removeAttachedMessage(index);
  const std::string after = printTree(root, TreeDetail::names);
  EXPECT_EQ(removed, before != after) << tree;
  for (const char* name : {"A", "B", "C"}) {
    const std::string shown = std::string("file=") + name;
    if (contains(before, shown) && !contains(after, shown)) return name;
  }
  return "-";
}

TEST(AttachedMessages, deliberately_get_name_and_remove_count_in_three_ways) {
  const struct {
    const char* tree;
    int count;
    const char* gotten;   // by positions 0, 1, 2
    const char* named;    // the same
    const char* removed;  // the same, each in a new tree
  } rows[] = {
      {"plain", 0, "---", "---", "---"},
      {"@A", 1, "A--", "A--", "---"},
      {"mixed(plain,@A,mixed(@B))", 2, "AB-", "AB-", "A--"},
      {"mixed(@A,mixed(@B,@C))", 3, "ABC", "ABC", "AC-"},
      {"mixed(mixed(@A),@B)", 2, "AB-", "A--", "A--"},
      {"mixed(mixed(plain),@A)", 1, "A--", "---", "A--"},
      {"mixed(mixed,@A,@B)", 2, "AB-", "-B-", "AB-"},
      {"mixed(mixed(mixed(plain),@B),@A)", 2, "BA-", "---", "B--"},
      {"alternative(mixed(mixed(plain)),mixed(@A))", 1, "A--", "A--", "A--"},
      {"report(plain,delivery,@A)", 1, "A--", "A--", "A--"},
      {"mixed(report(@A),alternative(@B),digest(@C))", 0, "---", "---", "---"},
      {"alternative(@A,mixed(@B,@C))", 3, "ABC", "ABC", "BC-"},
      {"related(html,multipart/x-mixed-replace(@A))", 1, "A--", "A--", "A--"},
      {"alternative(report(mixed(@A)),@B)", 2, "AB-", "AB-", "A--"},
      {"digest(@A,@B)", 2, "AB-", "AB-", "---"},
      {"alternative(rfc822,@A,mixed(rfc822,@B))", 4, "(absent)A(absent)", "-A-", "-B-"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildWithMessages(row.tree);
    LogNull log;
    EXPECT_EQ(root->getNumAttachedMessages(log), row.count) << row.tree;
    std::string gotten, named, removed;
    for (int i = 0; i < 3; ++i) {
      gotten += subjectAt(*root, i);
      named += fileNameAt(*root, i);
      removed += removedAt(row.tree, i);
    }
    EXPECT_EQ(gotten, row.gotten) << row.tree;
    EXPECT_EQ(named, row.named) << row.tree;
    EXPECT_EQ(removed, row.removed) << row.tree;
    EXPECT_EQ(subjectAt(*root, -1), "-") << row.tree;
  }
}

TEST(AttachedMessages, removed_all_at_once_are_those_that_go_one_by_one) {
  const struct {
    const char* tree;
    const char* left;
  } rows[] = {
      {"@A", "rfc822"},
      {"mixed(@A,plain,mixed(@B,html,@C),@A)", "mixed(plain,mixed(html))"},
      {"mixed(@A)", "mixed"},
      {"alternative(@A,report(plain,@B),related(@C))", "alternative(rfc822,report(plain),related(rfc822))"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildWithMessages(row.tree);
    root->removeAttachedMessages();
    EXPECT_EQ(printTree(root), row.left) << row.tree;
    const EmailPtr oneByOne = buildWithMessages(row.tree);
    while (oneByOne->removeAttachedMessage(0)) continue;
    EXPECT_EQ(printTree(oneByOne), row.left) << row.tree;
  }
}

TEST(AttachedMessages, deliberately_a_destroyed_node_ends_the_removal_in_its_enclosure_only) {
  for (const bool allAtOnce : {false, true}) {
    const EmailPtr root = buildWithMessages("alternative(mixed(@A,plain,@B),mixed(@C))");
    const Killed dead(*nodeAt(*root, "/0/1"));
    if (allAtOnce) root->removeAttachedMessages();
    while (!allAtOnce && root->removeAttachedMessage(0)) continue;
    EXPECT_EQ(printTree(root), "alternative(mixed(dead,rfc822),mixed)") << allAtOnce;
    EXPECT_EQ(subjectAt(*root, 0), "B") << "getting goes past it";
  }
}

TEST(AttachedMessages, log_the_types_on_the_way_when_they_are_counted) {
  LogMemory log;  // not verbose
  buildTree("mixed(plain,rfc822,mixed(rfc822))")->getNumAttachedMessages(log);
  LogMemory ofRoot;
  buildTree("rfc822")->getNumAttachedMessages(ofRoot);
  const auto linesOf = [](const LogMemory& from) {
    std::vector<std::string> lines;
    for (const LogEntry& entry : from.entries())
      lines.push_back(entry.tag.empty() ? entry.text : entry.tag + "=" + entry.text);
    return lines;
  };
  EXPECT_THAT(linesOf(log), testing::ElementsAre("contentType=multipart/mixed", "contentType=text/plain",
                                                 "contentType=message/rfc822", "Found attached message.",
                                                 "contentType=multipart/mixed", "contentType=multipart/mixed",
                                                 "contentType=message/rfc822", "Found attached message."));
  EXPECT_THAT(linesOf(ofRoot),
              testing::ElementsAre("contentType=message/rfc822", "Found message attachment."));
}

TEST(AttachedMessages, become_trees_of_their_own_that_share_the_settings) {
  EmailPtr root = load(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: message/rfc822\n\n"
      "Subject: Inner\nContent-Type: multipart/alternative; boundary=i\n\n"
      "--i\nContent-Type: text/plain; charset=iso-8859-2\n\n\xB1\n--i\nContent-Type: "
      "text/html\n\n<p>\n--i--\n"
      "\n--b--\n");
  ASSERT_EQ(root->get_charset_codepage(), 0);
  const EmailPtr inner = attachedMessage(*root, 0);
  ASSERT_TRUE(inner);
  EXPECT_EQ(printTree(root), "mixed(rfc822)");
  EXPECT_EQ(inner->m_common, root->m_common);
  EXPECT_EQ(root->get_charset_codepage(), 28592) << "the charset is shared, as documented";
  root.reset();
  EXPECT_EQ(field(*inner, "Subject"), "Inner");
  EXPECT_EQ(printTree(inner), "alternative(plain,html)");
  EXPECT_EQ(inner->getPart(0)->m_body.view(), "\xC4\x85");
}

TEST(AttachedMessages, leave_what_is_settled_about_sending_the_message_around_them) {
  const EmailPtr mixed = buildWithMessages("mixed(@A)");
  const EmailPtr digest = buildWithMessages("digest(@A)");
  for (Email2* root : {mixed.get(), digest.get()}) {
    root->m_common->m_sendSigned = root->m_common->m_sendEncrypted = true;
    root->m_common->m_idOnServer = 17;
    const EmailPtr inner = root == mixed.get() ? attachedMessage(*root, 0) : digestEntry(*root, 0);
    EXPECT_EQ(field(*inner, "Subject"), "A");
    EXPECT_TRUE(root->m_common->m_sendSigned && root->m_common->m_sendEncrypted);
    EXPECT_EQ(root->getIdOnServer(), 17);
  }
}

TEST(AttachedMessages, are_parsed_one_level_at_a_time) {
  constexpr int kDepth = 150;  // beyond the depth to which one message is taken apart
  std::string text = "Subject: Innermost\n\nx\n";
  for (int i = 0; i < kDepth; ++i) text.insert(0, "Content-Type: message/rfc822\n\n");
  EmailPtr message = load(text);
  for (int i = 0; i < kDepth; ++i) {
    ASSERT_EQ(printTree(message), "rfc822") << i;
    ASSERT_TRUE(message = attachedMessage(*message, 0)) << i;
  }
  EXPECT_EQ(field(*message, "Subject"), "Innermost");
}

TEST(AttachedMessages, give_any_parameter_of_the_part_that_holds_them) {
  const EmailPtr root = load(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
      "Content-Type: message/rfc822; name*=iso-8859-1''Gr%FC%DFe.eml; x-part=\"a;b\"\n\n"
      "Content-Type: text/plain; x-part=inner\n\n\n--b--\n");
  const struct {
    const char *field, *attribute, *value;
  } rows[] = {
      {"Content-Type", "name", "Grüße.eml"},
      {"content-TYPE", "X-Part", "a;b"},
      {"Content-Type", "charset", ""},
      {"Subject", "name", ""},
      {"Content-Disposition", "filename", "Grüße.eml"},
  };
  for (const auto& row : rows) {
    XString field(row.field), attribute(row.attribute), value("before"), own("before");
    int counter = 0;
    LogNull log;
    EXPECT_EQ(root->getAttachedMessageAttr(0, counter, field, attribute, log, value), *row.value != '\0')
        << row.field << " " << row.attribute;
    EXPECT_STREQ(value.getUtf8(), row.value) << row.field << " " << row.attribute;
    if (equalsNoCase(viewOf(row.field), "Content-Disposition")) continue;  // no such field
    EXPECT_EQ(root->getPart(0)->getHeaderFieldAttr(row.field, row.attribute, own, log), *row.value != '\0');
    EXPECT_STREQ(own.getUtf8(), row.value) << row.field << " " << row.attribute;
  }
  XString field("Content-Type"), attribute("name"), value;
  int counter = std::numeric_limits<int>::max();
  LogNull log;
  EXPECT_FALSE(root->getAttachedMessageAttr(0, counter, field, attribute, log, value));
  EXPECT_EQ(counter, std::numeric_limits<int>::max());
}

TEST(Digests, are_only_the_node_asked_and_count_its_own_entries) {
  const struct {
    const char* tree;
    int count;
    const char* gotten;  // by positions 0, 1, 2
  } rows[] = {
      {"digest(plain,@A,mixed(@C),@B)", 2, "AB-"},
      {"mixed(digest(@A))", 0, "---"},
      {"mixed(@A)", 0, "---"},
      {"digest", 0, "---"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildWithMessages(row.tree);
    EXPECT_EQ(root->getNumDigests(), row.count) << row.tree;
    std::string gotten;
    for (int i = 0; i < 3; ++i) {
      const EmailPtr entry = digestEntry(*root, i);
      gotten += entry ? field(*entry, "Subject") : "-";
    }
    EXPECT_EQ(gotten, row.gotten) << row.tree;
  }
}

TEST(Digests, deliberately_end_at_position_10000) {
  std::string text = "Content-Type: multipart/digest; boundary=b\n\n";
  for (int i = 0; i <= 10'001; ++i) text += "--b\n\nSubject: " + std::to_string(i) + "\n\n\n";
  const EmailPtr root = load(text + "--b--\n");
  EXPECT_EQ(root->getNumDigests(), 10'002);
  const EmailPtr last = digestEntry(*root, 10'000);
  ASSERT_TRUE(last);
  EXPECT_EQ(field(*last, "Subject"), "10000");
  EXPECT_FALSE(digestEntry(*root, 10'001));
  EXPECT_FALSE(digestEntry(*root, -1));
}

TEST(AttachedMessages, are_found_in_a_tree_deeper_than_any_stack) {
  const EmailPtr root = buildChain(200'000, "multipart/mixed", "message/rfc822");
  LogNull log;
  EXPECT_EQ(root->getNumAttachedMessages(log), 1);
  EXPECT_TRUE(attachedMessage(*root, 0));
  EXPECT_TRUE(root->removeAttachedMessage(0));
  root->removeAttachedMessages();
  EXPECT_EQ(root->getNumAttachedMessages(log), 0);
}

TEST(AttachedMessages, of_a_destroyed_node_are_none) {
  for (const char* tree : {"mixed(@A)", "digest(@A)", "@A"}) {
    const EmailPtr root = buildWithMessages(tree);
    LogMemory log;
    SystemCerts certs;
    int counter = 0;
    XString field("Content-Disposition"), attribute("filename"), out("x");
    {
      const Killed dead(*root);
      EXPECT_EQ(root->getNumAttachedMessages(log), 0) << tree;
      EXPECT_FALSE(root->getAttachedMessage(0, counter, certs, log)) << tree;
      EXPECT_FALSE(root->getAttachedMessageAttr(0, counter, field, attribute, log, out)) << tree;
      EXPECT_FALSE(root->getHeaderFieldAttr("Content-Disposition", "filename", out, log)) << tree;
      EXPECT_FALSE(root->removeAttachedMessage(0)) << tree;
      root->removeAttachedMessages();
      EXPECT_EQ(root->getNumDigests(), 0) << tree;
      EXPECT_FALSE(root->getNthDigest(0, certs, log)) << tree;
    }
    EXPECT_TRUE(out.isEmpty()) << tree;
    EXPECT_EQ(countMessages(log), 0) << log.text();
    EXPECT_TRUE(contains(printTree(root), "rfc822")) << tree;
  }
}

}  // namespace
}  // namespace mailtree
