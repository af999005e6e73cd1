#include <functional>

#include "tests/email/cases.h"

namespace mailtree {
namespace {

using namespace std::string_literals;

std::string joined(const ExtPtrArraySb& list) {
  std::string out;
  for (int i = 0; i < list.getSize(); ++i) out.append(i ? " " : "").append(list.sbAt(i)->view());
  return out;
}

EmailPtr withHeader(std::string_view header) {
  EmailPtr node = bareNode();
  node->m_header.loadMimeHeaderText(header, quiet);
  return node;
}

std::string reversePath(Email2& email, LogBase& log = quiet) {
  StringBuffer out("old");
  email.getSmtpReversePathUtf8(out, log);
  return out.extractString();
}

TEST(Sender, code_pages_choose_between_q_and_b) {
  const EmailPtr node = bareNode();
  for (const int codePage : {874, 932, 936, 949, 950, 1361, 52936, 50001, 50220, 54936, 64999, 1200, 1201,
                             20866, 21866, 1256, 28596})
    EXPECT_FALSE(node->qbChooseForEmailAddrEncoding(codePage)) << codePage;
  for (const int codePage : {0,   -1,  65001, 65000, 50000, 1252, 28591, 20127, 1251,  28595, 873,
                             875, 933, 951,   1360,  1202,  1255, 1257,  20865, 28597, 100000})
    EXPECT_TRUE(node->qbChooseForEmailAddrEncoding(codePage)) << codePage;
}

TEST(Sender, name_is_encoded_for_the_charset_of_the_email) {
  for (const auto& [codePage, name] :
       {std::pair(932, "=?shift_jis?B?jlKTYw==?="), std::pair(0, "=?utf-8?Q?=E5=B1=B1=E7=94=B0?=")}) {
    const EmailPtr node = bareNode();
    node->use_codepage(codePage);
    node->setFromFullUtf8("\xE5\xB1\xB1\xE7\x94\xB0 <y@e.com>", quiet);
    EXPECT_EQ(writtenHeader(*node),
              "From: " + std::string(name) + " <y@e.com>\r\nSVX-Bounce-Address: y@e.com");
    EXPECT_EQ(disagreeingFields(*node), "") << codePage;
  }
}

TEST(Sender, setters_rewrite_the_field_unless_there_is_nothing_to_use_and_keep_where_bounces_go) {
  const std::pair<void (*)(Email2&), std::string> steps[] = {
      {[](Email2& e) { e.setFromFullUtf8("Ann <ann@e.com>", quiet); }, "Ann <ann@e.com>"},
      {[](Email2& e) { e.setFromAddr("nobody", quiet), e.setFromAddr(nullptr, quiet); }, "Ann <ann@e.com>"},
      {[](Email2& e) { e.setFromFullUtf8("nobody", quiet); }, "Ann <ann@e.com>"},
      {[](Email2& e) { e.setFromFullUtf8(nullptr, quiet); }, "Ann <ann@e.com>"},
      {[](Email2& e) { e.setFromName(nullptr, quiet); }, "Ann <ann@e.com>"},  // deliberately not yet
      {[](Email2& e) { e.updateFromInHeader(quiet); }, "ann@e.com"},
      {[](Email2& e) { e.setFromName("A\r\nBcc: b\nB", quiet); }, "\"ABcc: bB\" <ann@e.com>"},
      {[](Email2& e) { e.setFromName("", quiet); }, "\"ABcc: bB\" <ann@e.com>"},
      {[](Email2& e) { e.setFromAddr("b@e.com", quiet); }, "b@e.com"},
  };
  const EmailPtr node = bareNode();
  for (const auto& [set, from] : steps) {
    set(*node);
    EXPECT_EQ(writtenHeader(*node), "From: " + from + "\r\nSVX-Bounce-Address: ann@e.com");
  }
  EXPECT_EQ(disagreeingFields(*node) + reversePath(*node), "ann@e.com");
}

TEST(Sender, address_with_a_line_break_forges_no_field_and_one_too_long_for_a_line_is_in_none) {
  const EmailPtr node = bareNode(), longNode = bareNode();
  node->setFromAddr("ann@example.com\r\nBcc: all@example.com", quiet);
  StringBuffer address;
  node->getFromAddrUtf8(address);
  EXPECT_EQ(address.view(), "ann@example.comBcc: all@example.com");
  EXPECT_EQ(withHeader(writtenHeader(*node) + "\r\n")->m_header.findField("Bcc"), -1) << writtenHeader(*node);
  longNode->setFromAddr((std::string(991, 'a') + "boss@corp.test").c_str(), quiet);
  EXPECT_EQ(writtenHeader(*longNode), "From:");
}

TEST(Sender, and_recipients_and_date_say_what_they_could_not_use) {
  const EmailPtr node = bareNode();
  LogMemory log;
  node->setFromFullUtf8("root; Ann <ann@example.com>, b@x", log);
  node->setFromAddr("root", log);
  node->setReplyToUtf8("nobody else", log);
  node->addMultipleRecip(1, "\"Two words\", c@x, root", log);
  node->setDate("so\r\non", log, false);
  EXPECT_EQ(said(log),
            "Not used as an address: <root>|Not used as an address: b@x|Not used as an address: <root>|"
            "Not used as an address: nobody else|Not used as an address: Two words|"
            "Not used as a date: so on|");
}

TEST(Sender, is_shown_from_the_record_or_else_from_the_field) {
  for (const auto& [name, address, field, full, friendly] : rowsOf<5>(R"(
    Jörg | j@e | x | Jörg <j@e> | Jörg            ||  | j@e | x | j@e |
    Ann |  | =?utf-8?Q?J=C3=B6?= <j@e> | Jö <j@e> | Ann
     |  | "Ann "The" B" <a@e> | "Ann "The" B" <a@e> | Ann "The" B
     |  | undisclosed | undisclosed | undisclosed ||  |  |  |  |)")) {
    const EmailPtr node = bareNode();
    node->m_fromAddr.m_name.setFromUtf8(name.c_str());
    node->m_fromAddr.m_address.setFromUtf8(address.c_str());
    if (!field.empty()) node->m_header.addMimeField("From", field.c_str(), true, quiet);
    StringBuffer shown("+");
    node->getFromFullUtf8(shown, quiet);
    shown.appendChar('+');
    node->getFromNameUtf8(shown, quiet);
    EXPECT_EQ(shown.view(), "+" + full + "+" + friendly);
    EXPECT_EQ(node->m_fromAddr.m_name.view(), friendly) << "a name read from the field is kept";
  }
}

TEST(Sender, reverse_path_comes_from_the_first_source_that_has_one_deliberately_whole_from_reply_to) {
  for (const auto& [header, sender, found] : rowsOf<3>(R"(
    Reply-To: r@e\nFrom: f@e\nReturn-Path: <p@e>\nSVX-Bounce-Address: <b@e>\n | s@e | fromSvxBounceAddr=b@e
    Reply-To: r@e\nFrom: f@e\nReturn-Path: <p@e>\nSVX-Bounce-Address: <>\n | s@e | fromReturnPath=p@e
    Reply-To: r@e\nFrom: f@e\nReturn-Path: < >\n | s@e | fromAddr822=s@e
    Reply-To: r@e\nFrom: F <f@e>, G <g@e>\n |  | fromMimeHeader=f@e
    From: =?utf-8?Q?evil=40x=2Ecom=2C?= <f@e>\n |  | fromMimeHeader=f@e
    Reply-To: R Name <r@e>\nFrom: nobody\n |  | fromReplyTo=R Name r@e || Subject: s\n |  | fromNothing=)")) {
    const EmailPtr node = withHeader(header);
    node->m_fromAddr.m_address.setFromUtf8(sender.c_str());
    LogMemory log, brief;
    log.m_verboseLogging = true;
    const std::string path = reversePath(*node, log);
    EXPECT_EQ(log.entries()[0].text + " " + said(log), "getSmtpReversePath " + found + "|") << header;
    EXPECT_EQ(path, found.substr(found.find('=') + 1)) << header;
    EXPECT_EQ(reversePath(*node, brief), path) << header;
    EXPECT_TRUE(brief.entries().empty()) << header;
  }
}

TEST(Sender, encoded_words_never_become_an_envelope_sender) {
  const char* word = "=?utf-8?q?victim=40bank.test?=@evil.test";
  for (const char* sender : {word, "j\xC3\xB6rg@b\xC3\xBC.test"}) {
    const EmailPtr node = bareNode();
    node->setFromFullUtf8(sender, quiet);
    EXPECT_EQ(reversePath(*node), sender);
    EXPECT_EQ(reversePath(*withHeader(writtenHeader(*node))), sender) << writtenHeader(*node);
  }
  for (const char* field : {"SVX-Bounce-Address", "Return-Path", "Reply-To"})
    EXPECT_EQ(reversePath(*withHeader(std::string(field) + ": <" + word + ">\r\n")), word) << field;
}

TEST(Sender, envelope_sender_holds_no_line_break) {
  const EmailPtr node = bareNode();
  node->m_fromAddr.m_address.setFromUtf8N("a@b\r\nRCPT TO:\0x", 16);
  EXPECT_EQ(reversePath(*node), "a@bRCPT TO:x");
  EXPECT_EQ(reversePath(*withHeader(std::string_view("Return-Path: a@b\r\n .te\0st\n", 27))), "a@b .test");
}

TEST(Sender, reply_to_is_one_address_or_none) {
  for (const auto& [text, written] : {std::pair("J\xC3\xB6rg <j@e.com>", "J\xC3\xB6rg <j@e.com>"),
                                      std::pair<const char*, const char*>(nullptr, "(none)"),
                                      std::pair(" \t", "(none)"), std::pair("nobody", "(none)")}) {
    const EmailPtr node = withHeader("REPLY-TO: old@e.com\r\n");
    if (*written == '(') node->m_header.addMimeField("Reply-To", "older@e.com", false, quiet);
    node->setReplyToUtf8(text, quiet);
    EXPECT_EQ(fieldOf(*node, "Reply-To"), written);
  }
}

EmailPtr withRecipients() {
  EmailPtr node = bareNode();
  node->addMultipleRecip(1, "T1 <t1@e.com>, t2@e.com", quiet);
  node->addMultipleRecip(2, "C1 <c1@e.com>", quiet);
  node->addMultipleRecip(3, "B1 <b1@e.com>, b2@e.com, b3@e.com", quiet);
  return node;
}

std::string recipients(Email2& node) {
  StringBuffer out;
  for (const int kind : {1, 2, 3}) {
    node.getAllRecipients(kind, out, quiet);
    out.append("|");
  }
  return out.extractString();
}

/// What is read of a kind: the count, the first address, name and full text, the value of its field, and the
/// collected addresses.
std::string readingOf(Email2& node, int kind) {
  StringBuffer out(std::to_string(node.getNumRecipients(kind)) + " ");
  EXPECT_FALSE(node.getRecipientAddrUtf8(kind, 3, out) || node.getRecipientNameUtf8(kind, -1, out) ||
               node.getRecipientFullUtf8(kind, 3, out, quiet));
  EXPECT_TRUE(node.getRecipientAddrUtf8(kind, 0, out) && node.getRecipientNameUtf8(kind, 0, out));
  EXPECT_TRUE(node.getRecipientFullUtf8(kind, 0, out, quiet));
  out.append("; ");
  node.getAllRecipients(kind, out, quiet);
  ExtPtrArraySb typed;
  EXPECT_TRUE(node.addRecipientsForType(kind, typed, ExtPtrArray(), quiet));
  return out.extractString() + "; " + joined(typed);
}

TEST(Recipients, deliberate_other_kinds_mean_to_here_and_bcc_there) {
  const std::string other = "2 b1@e.comB1B1 <b1@e.com>; ; b1@e.com b2@e.com";
  const std::string to = "T1 <t1@e.com>, t2@e.com|", cc = "C1 <c1@e.com>|",
                    bcc = "B1 <b1@e.com>, b2@e.com, b3@e.com|";
  const std::tuple<int, std::string, std::string> rows[] = {
      {0, other, "|" + cc + bcc},
      {1, "2 t1@e.comT1T1 <t1@e.com>; T1 <t1@e.com>, t2@e.com; t1@e.com t2@e.com", "|" + cc + bcc},
      {2, "1 c1@e.comC1C1 <c1@e.com>; C1 <c1@e.com>; c1@e.com", to + "|" + bcc},
      {3, "3 b1@e.comB1B1 <b1@e.com>; B1 <b1@e.com>, b2@e.com, b3@e.com; b1@e.com b2@e.com b3@e.com",
       to + cc + "|"},
      {4, other, "|" + cc + bcc},
  };
  for (const auto& [kind, read, left] : rows) {
    const EmailPtr node = withRecipients();
    EXPECT_EQ(readingOf(*node, kind), read);
    node->clearRecipients(kind);
    EXPECT_EQ(recipients(*node) + disagreeingFields(*node), left) << kind;
  }
}

TEST(Recipients, deliberate_adding_writes_the_field_of_its_kind_only) {
  const std::tuple<int, const char*, const char*, const char*> rows[] = {
      {1, "", "To: A <a@e.com>", "To: A <a@e.com>"},
      {2, "", "Cc: A <a@e.com>", "CC: A <a@e.com>"},
      {3, "", "", ""},
      {3, "x,USEbccHEADER", "Bcc: A <a@e.com>", ""},
      {0, "UseBccHeader", "", ""},
  };
  for (const auto& [kind, options, one, several] : rows) {
    LogNull log;
    log.m_options.setString(options);
    const EmailPtr alone = bareNode(), listed = bareNode();
    EXPECT_TRUE(alone->addRecipient(kind, " A ", " a@e.com ", log));
    EXPECT_EQ(listed->addMultipleRecip(kind, "A <a@e.com>", log), 1);
    EXPECT_EQ(writtenHeader(*alone), one) << kind << options;
    EXPECT_EQ(writtenHeader(*listed), several) << kind << options;
    EXPECT_EQ(alone->getNumRecipients(kind) + listed->getNumRecipients(kind), 2);
    alone->clearBccFromHeader();
    EXPECT_EQ(alone->getNumHeaderFields(), kind == 1 || kind == 2);
    EXPECT_EQ(alone->getNumRecipients(kind), 1) << "still to be sent to";
  }
}

TEST(Recipients, nothing_added_is_nothing_written) {
  const EmailPtr node = bareNode();
  EXPECT_FALSE(node->addRecipient(1, "Name", nullptr, quiet) || node->addRecipient(1, "Name", "", quiet));
  for (const char* list : {static_cast<const char*>(nullptr), " , ;", "Group:;"})
    EXPECT_EQ(node->addMultipleRecip(1, list, quiet), 0) << viewOf(list);
  EXPECT_EQ(node->getNumHeaderFields(), 0);
}

TEST(Recipients, field_says_what_the_list_says_after_any_change) {
  const std::function<void(Email2&)> changes[] = {
      [](Email2&) {},
      [](Email2& e) { e.m_toAddrs.at<_svEmailAddress>(0)->m_name.setFromUtf8("K\xC3\xB6nig"); },
      [](Email2& e) { const Owned<SorvikObject> gone(e.m_toAddrs.removeAt(0)); },
      [](Email2& e) { e.addRecipient(7, "Silent", "s@e.com", quiet); },
      [](Email2& e) { e.addRecipient(2, "Copy", "c@e.com", quiet); },
      [](Email2& e) { EXPECT_EQ(e.addMultipleRecip(1, "\"L, M\" <l@e.com>; n@e.com", quiet), 2); },
      [](Email2& e) { e.setHeaderField("To", "x@e.com", quiet); },
      [](Email2& e) { e.removeHeaderField("To"); },
      [](Email2& e) { e.use_codepage(932); },
      [](Email2& e) { e.clearRecipients(1); },
  };
  const EmailPtr node = bareNode();
  for (const auto& change : changes) {
    for (int i = 0; i < 3; ++i)
      node->addRecipient(1, i == 1 ? "J\xC3\xB6rg, \xE3\x81\x82" : nullptr, "j@e.com", quiet);
    change(*node);
    node->addRecipient(1, "Last", "l@e.com", quiet);
    StringBuffer list;
    node->getAllRecipients(1, list, quiet);
    EXPECT_EQ(node->m_header.rawValue(node->m_header.findField("To")), list.view()) << &change - changes;
    EXPECT_EQ(disagreeingFields(*node), "") << &change - changes;
  }
}

TEST(Recipients, are_copied_after_those_that_are_there) {
  const EmailPtr source = withRecipients(), target = bareNode();
  target->addRecipient(1, "\xE3\x81\x82", "t0@e.com", quiet);
  target->use_codepage(932);
  target->copyRecipients(*source);
  EXPECT_EQ(recipients(*target),
            "=?shift_jis?B?gqA=?= <t0@e.com>, T1 <t1@e.com>, t2@e.com|C1 <c1@e.com>|B1 <b1@e.com>, b2@e.com, "
            "b3@e.com|");
  EXPECT_FALSE(target->hasHeaderField("Bcc", quiet));
  EXPECT_EQ(disagreeingFields(*target), "");
  StringBuffer all("old");
  target->getAllRecipientAddresses(all);
  EXPECT_EQ(all.view(), "t0@e.com,t1@e.com,t2@e.com,c1@e.com,b1@e.com,b2@e.com,b3@e.com");
}

TEST(Recipients, distinct_addresses_are_collected_after_replacement) {
  const EmailPtr node = bareNode();
  node->addMultipleRecip(1, "a@e.com, A@e.com, b@old.com", quiet);
  node->addMultipleRecip(2, "a@e.com, b@new.com", quiet);
  node->addRecipient(3, "blank", " ", quiet);
  node->addRecipient(3, nullptr, "known@e.com", quiet);
  ExtPtrArray replacements;
  replacements.appendObject(new StringPair("old", "new"));
  replacements.appendPtr(nullptr);
  ExtPtrArraySb out;
  out.appendString("known@e.com");
  LogMemory log;
  EXPECT_TRUE(node->getAllRecipientAddressesA(out, replacements, log));
  EXPECT_EQ(joined(out), "known@e.com a@e.com A@e.com b@new.com");
  ASSERT_EQ(log.entries().size(), 8u) << "one context around three, of the same name deliberately";
  for (const int i : {0, 1}) EXPECT_EQ(log.entries()[i].text, "getAllRecipientAddressesA");
}

TEST(Recipients, deliberate_counting_in_to_and_reading_from_bcc_can_run_out) {
  const EmailPtr node = bareNode();
  node->addMultipleRecip(1, "a@e.com, b@e.com", quiet);
  node->addMultipleRecip(3, "c@e.com", quiet);
  ExtPtrArraySb out;
  EXPECT_FALSE(node->addRecipientsForType(0, out, ExtPtrArray(), quiet));
  EXPECT_EQ(joined(out), "c@e.com");
}

}  // namespace
}  // namespace mailtree
