// Attached messages, digests and reports: which parts count, in which order, and what becomes of them.
#include <limits>
#include <optional>

#include "tests/email/cases.h"

namespace mailtree {
namespace {

SystemCerts certs;

/// A tree in which "@A" is an attached message with the subject and the file name A.
EmailPtr buildWithMessages(const std::string& tree) {
  std::string whole = tree;
  for (std::size_t at = 0; (at = whole.find('@', at)) != whole.npos;) {
    const std::string name(1, whole[at + 1]);
    whole.replace(at, 2, "rfc822[file=" + name + ",body=Subject: " + name + "]");
  }
  return buildTree(whole);
}

EmailPtr attachedMessage(Email2& root, int index) {
  int counter = 0;
  return EmailPtr(root.getAttachedMessage(index, counter, certs, quiet));
}

EmailPtr digestEntry(Email2& root, int index) { return EmailPtr(root.getNthDigest(index, certs, quiet)); }

std::string subjectOf(const EmailPtr& message) { return message ? field(*message, "Subject") : "-"; }

std::string attributeOf(Email2& root, int index, const char* field, const char* attribute) {
  int counter = 0;
  XString name(field), wanted(attribute), out("what was there");
  const bool found = root.getAttachedMessageAttr(index, counter, name, wanted, quiet, out);
  EXPECT_EQ(found, !out.isEmpty());
  return found ? out.getUtf8() : "-";
}

/// The message that is gone from the tree afterwards.
std::string removedAt(const std::string& tree, int index) {
  const EmailPtr root = buildWithMessages(tree);
  const std::string before = printTree(root, TreeDetail::names);
  const bool removed = root->removeAttachedMessage(index);
  const std::string after = printTree(root, TreeDetail::names);
  EXPECT_EQ(removed, before != after) << tree;
  for (const std::string name : {"A", "B", "C"})
    if (contains(before, "file=" + name) && !contains(after, "file=" + name)) return name;
  return "-";
}

TEST(AttachedMessages, deliberately_get_name_and_remove_count_in_three_ways) {
  // The count, and by positions 0, 1, 2: what is gotten, what is named, and what is removed from a new tree.
  for (const auto& [tree, count, gotten, named, removed] : rowsOf<5>(R"(
    @A | 1 | A-- | A-- | ---                     || mixed(plain,@A,mixed(@B)) | 2 | AB- | AB- | A--
    mixed(@A,mixed(@B,@C)) | 3 | ABC | ABC | AC- || mixed(mixed(@A),@B) | 2 | AB- | A-- | A--
    mixed(mixed,@A,@B) | 2 | AB- | -B- | AB-     || mixed(mixed(mixed(plain),@B),@A) | 2 | BA- | --- | B--
    alternative(mixed(mixed(plain)),mixed(@A)) | 1 | A-- | A-- | A--
    report(plain,delivery,@A) | 1 | A-- | A-- | A--
    mixed(report(@A),alternative(@B),digest(@C)) | 0 | --- | --- | ---
    alternative(@A,mixed(@B,@C)) | 3 | ABC | ABC | BC-
    related(html,multipart/x-mixed-replace(@A)) | 1 | A-- | A-- | A--
    alternative(rfc822,@A,mixed(rfc822,@B)) | 4 | (absent)A(absent) | -A- | -B-)")) {
    const EmailPtr root = buildWithMessages(tree);
    std::string found[3];
    for (int i = 0; i < 3; ++i) {
      found[0] += subjectOf(attachedMessage(*root, i));
      found[1] += attributeOf(*root, i, "content-disposition", "FILENAME");
      found[2] += removedAt(tree, i);
    }
    EXPECT_EQ(std::to_string(root->getNumAttachedMessages(quiet)), count) << tree;
    EXPECT_EQ(found[0] + " " + found[1] + " " + found[2], gotten + " " + named + " " + removed) << tree;
    EXPECT_FALSE(attachedMessage(*root, -1)) << tree;
  }
}

TEST(AttachedMessages, removed_all_at_once_are_those_that_go_one_by_one) {
  // Deliberate: a destroyed node ends the removal in its enclosure only, and getting goes past it.
  for (const auto& [tree, dead, left] : rowsOf<3>(R"(
    @A | | rfc822
    mixed(@A,plain,mixed(@B,html,@C),@A) | | mixed(plain,mixed(html))
    alternative(@A,report(plain,@B),related(@C)) | | alternative(rfc822,report(plain),related(rfc822))
    alternative(mixed(@A,plain,@B),mixed(@C)) | /0/1 | alternative(mixed(dead,rfc822),mixed))"))
    for (const bool allAtOnce : {false, true}) {
      const EmailPtr root = buildWithMessages(tree);
      std::optional<Killed> killed;
      if (!dead.empty()) killed.emplace(*nodeAt(*root, dead));
      if (allAtOnce) root->removeAttachedMessages();
      while (!allAtOnce && root->removeAttachedMessage(0)) continue;
      EXPECT_EQ(printTree(root), left) << allAtOnce;
      EXPECT_TRUE(!killed || subjectOf(attachedMessage(*root, 0)) == "B");
    }
}

TEST(AttachedMessages, log_the_types_on_the_way_when_they_are_counted) {
  LogMemory log;  // not verbose
  buildTree("mixed(plain,mixed(rfc822))")->getNumAttachedMessages(log);
  buildTree("rfc822")->getNumAttachedMessages(log);
  EXPECT_EQ(said(log),
            "contentType=multipart/mixed|contentType=text/plain|contentType=multipart/mixed|"
            "contentType=multipart/mixed|contentType=message/rfc822|Found attached message.|"
            "contentType=message/rfc822|Found message attachment.|");
}

TEST(AttachedMessages, become_trees_of_their_own_that_share_the_settings) {
  EmailPtr root = load(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: message/rfc822\n\n"
      "Subject: Inner\nContent-Type: text/plain; charset=iso-8859-2\n\n\xB1\n--b--\n");
  ASSERT_EQ(root->get_charset_codepage(), 0);
  const EmailPtr inner = attachedMessage(*root, 0);
  EXPECT_EQ(inner->m_common, root->m_common);
  EXPECT_EQ(root->get_charset_codepage(), 28592) << "the charset is shared, as documented";
  root.reset();
  EXPECT_EQ(subjectOf(inner) + printTree(inner), "Innerplain");
  EXPECT_EQ(inner->m_body.view(), "\xC4\x85");
}

TEST(AttachedMessages, leave_what_is_settled_about_sending_the_message_around_them) {
  for (const char* tree : {"mixed(@A)", "digest(@A)"}) {
    const EmailPtr root = buildWithMessages(tree);
    root->m_common->m_sendSigned = root->m_common->m_sendEncrypted = true;
    root->m_common->m_idOnServer = 17;
    EXPECT_EQ(subjectOf(*tree == 'm' ? attachedMessage(*root, 0) : digestEntry(*root, 0)), "A");
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
  EXPECT_EQ(subjectOf(message), "Innermost");
}

TEST(AttachedMessages, give_any_parameter_of_the_part_that_holds_them) {
  const EmailPtr root = load(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
      "Content-Type: message/rfc822; name*=iso-8859-1''Gr%FC%DFe.eml; x-part=\"a;b\"\n\n"
      "Content-Type: text/plain; x-part=inner\n\n\n--b--\n");
  for (const auto& [name, attribute, value] : rowsOf<3>(R"(
    Content-Type | name    | Grüße.eml || content-TYPE | X-Part  | a;b
    Content-Type | charset | -         || Subject      | name    | -)")) {
    EXPECT_EQ(attributeOf(*root, 0, name.c_str(), attribute.c_str()), value);
    XString own("before");
    EXPECT_EQ(root->getPart(0)->getHeaderFieldAttr(name.c_str(), attribute.c_str(), own, quiet),
              value != "-");
    EXPECT_EQ(own.isEmpty() ? "-" : own.getUtf8(), value);
  }
  // A field that there is not.
  EXPECT_EQ(attributeOf(*root, 0, "Content-Disposition", "filename"), "Grüße.eml");
  XString name("Content-Type"), attribute("name"), value;
  int counter = std::numeric_limits<int>::max();
  EXPECT_FALSE(root->getAttachedMessageAttr(0, counter, name, attribute, quiet, value));
  EXPECT_EQ(counter, std::numeric_limits<int>::max());
}

TEST(Digests, are_only_the_node_asked_and_count_its_own_entries) {
  for (const auto& [tree, count, gotten] : rowsOf<3>(
           "digest(plain,@A,mixed(@C),@B) | 2 | AB- || mixed(digest(@A)) | 0 | --- || digest | 0 | ---")) {
    const EmailPtr root = buildWithMessages(tree);
    EXPECT_EQ(std::to_string(root->getNumDigests()), count) << tree;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(subjectOf(digestEntry(*root, i)), gotten.substr(i, 1)) << tree;
  }
}

TEST(Digests, deliberately_end_at_position_10000) {
  std::string text = "Content-Type: multipart/digest; boundary=b\n\n";
  for (int i = 0; i <= 10'001; ++i) text += "--b\n\nSubject: " + std::to_string(i) + "\n\n\n";
  const EmailPtr root = load(text + "--b--\n");
  EXPECT_EQ(root->getNumDigests(), 10'002);
  EXPECT_EQ(subjectOf(digestEntry(*root, 10'000)), "10000");
  EXPECT_FALSE(digestEntry(*root, 10'001) || digestEntry(*root, -1));
}

// Reports

TEST(Reports, are_parts_about_messages_but_no_messages) {
  for (const char* type : {"message/delivery-status", "MESSAGE/Feedback-Report", "Text/RFC822-Headers-x"})
    EXPECT_TRUE(buildTree(type)->isReportPart()) << type;
  for (const char* type : {"message/rfc822", "MESSAGE/RFC822", "text/rfc822", "multipart/report"})
    EXPECT_FALSE(buildTree(type)->isReportPart()) << type;
}

TEST(Reports, deliberately_count_afresh_in_each_enclosure_when_they_are_read) {
  for (const auto& [tree, expected] : rowsOf<2>(R"(
    plain | 0--- || delivery[body=A] | 1A--
    report(plain,delivery[body=A],text/rfc822-headers[body=B],rfc822) | 2AB-
    mixed(message/x[body=A],report(message/x[body=B],message/x[body=C])) | 3AC-
    mixed(mixed(plain),report(delivery[body=A]),message/x[body=B]) | 2A--
    mixed(alternative(delivery[body=A]),delivery[body=B]) | 1B--
    alternative(delivery[body=A],report(delivery[body=B],delivery[body=C])) | 3AC-)")) {
    const EmailPtr root = buildTree(tree);
    std::string found = std::to_string(root->getNumReports());
    for (int i = 0; i < 3; ++i) {
      StringBuffer out("what was there");
      found += root->getReport(i, quiet, out) ? out.getString() : "-";
      EXPECT_EQ(out.isEmpty(), found.back() == '-') << tree;
    }
    EXPECT_EQ(found, expected) << tree;
  }
}

/// The reporter, the first recipient, and all recipients.
std::string reading(Email2& root) {
  std::string text;
  for (const char* name : {"reporting-mta", "Final-Recipient"}) {
    XString out("what was there");
    const bool found = root.getDeliveryStatusInfo(name, out, quiet);
    EXPECT_EQ(found, !out.isEmpty()) << name;
    text.append(out.getUtf8()).append(" / ");
  }
  ClsStringArray recipients;
  EXPECT_TRUE(root.getDsnFinalRecipients(recipients, quiet));
  for (int i = 0; i < recipients.getSize(); ++i) text += std::string(i ? "," : "") + recipients.getUtf8(i);
  return text;
}

TEST(DeliveryStatus, gives_a_field_of_any_block_and_the_recipients_of_all) {
  // Deliberate: two empty lines end the recipients but not the fields.
  for (const auto& [status, expected] : rowsOf<2>(R"(
    Reporting-MTA: a\n\nFinal-Recipient: rfc822; x\n\nFinal-Recipient: RFC822;z | a / rfc822; x / x,z
    \nReporting-MTA:a;\n b\nFinal-Recipient: x; C=de; rfc822; x | a; b / x; C=de; rfc822; x / x; C=de;  x
    Reporting-MTA: =?utf-8?q?d=C3=BC?=\n | dü /  /\x20
    \n\n\nAction: failed\n\n\n\n\nReporting-MTA: c | c /  /\x20
    Final-Recipient: rfc822; a@b\n\n\nFinal-Recipient: c\nReporting-MTA: d | d / rfc822; a@b / a@b)"))
    for (const std::string& text : {status, crlf(status)}) {
      const EmailPtr root = load(
          "Content-Type: multipart/report; boundary=b\n\n--b\n\nSorry.\n--b\n"
          "Content-Type: message/delivery-status\n\n" +
          text + "\n--b--\n");
      EXPECT_EQ(reading(*root), expected) << text;
    }
  EXPECT_EQ(reading(*load("Content-Type: message/delivery-status\nContent-Transfer-Encoding: base64\n\n"
                          "RmluYWwtUmVjaXBpZW50OiByZmM4MjI7IGFAYgo=\n")),
            " / rfc822; a@b / a@b");
}

TEST(DeliveryStatus, is_the_best_of_three_kinds_of_report) {
  for (const auto& [tree, content] : rowsOf<2>(R"(
    mixed(message/feedback-report[body=1],message/disposition-notification[body=2],delivery[body=3]) | 3
    mixed(message/feedback-report[body=1],message/disposition-notification[body=2]) | 2
    alternative(related(message/feedback-report[body=1])) | 1
    mixed(delivery[body=first],delivery[body=second]) | first || delivery[body=\xFF] | \xEF\xBF\xBD)")) {
    XString out("what was there");
    EXPECT_TRUE(buildTree(tree)->getDeliveryStatusContent(out, quiet)) << tree;
    EXPECT_EQ(out.getUtf8(), content) << tree;
  }
}

/// What the three operations log; each must fail.
std::string errorsOf(Email2& root) {
  LogMemory log;
  XString out;
  ClsStringArray list;
  EXPECT_FALSE(root.getDeliveryStatusInfo("Status", out, log) || root.getDsnFinalRecipients(list, log) ||
               root.getDeliveryStatusContent(out, log));
  return said(log);
}

TEST(DeliveryStatus, that_is_missing_or_empty_is_an_error) {
  const std::string missing = "No message/delivery-status MIME part found ";
  EXPECT_EQ(errorsOf(*buildTree("report(plain,rfc822)")),
            missing + "(1)|" + missing + "(2)|" + missing + "(3)|");
  const std::string empty = "Delivery-status information is empty|";
  EXPECT_EQ(errorsOf(*buildTree("report(delivery[body=],message/feedback-report)")), empty + empty + empty);
}

// All of them

TEST(AttachedMessages, and_reports_are_found_in_a_tree_deeper_than_any_stack) {
  const EmailPtr root = buildChain(100'000, "multipart/mixed", "message/rfc822");
  EXPECT_EQ(root->getNumAttachedMessages(quiet), 1);
  EXPECT_TRUE(attachedMessage(*root, 0));
  StringBuffer out;
  EXPECT_FALSE(root->getNumReports() > 0 || root->getReport(0, quiet, out));
  EXPECT_TRUE(root->removeAttachedMessage(0));
  root->removeAttachedMessages();
  EXPECT_EQ(root->getNumAttachedMessages(quiet), 0);
}

}  // namespace
}  // namespace mailtree
