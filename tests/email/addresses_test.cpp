#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "mailtree/email/Email2.h"
#include "tests/support/fields.h"

namespace mailtree {
namespace {

LogNull quiet;

EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

std::string addresses(const ExtPtrArray& list) {
  std::string out;
  for (int i = 0; i < list.getSize(); ++i)
    out.append(i ? "," : "").append(list.at<_svEmailAddress>(i)->m_address.view());
  return out;
}

std::string reversePath(Email2& email, LogBase& log = quiet) {
  StringBuffer out("old");
  email.getSmtpReversePathUtf8(out, log);
  return out.extractString();
}

// Sender

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
  const struct {
    int codePage;
    const char* begins;
  } rows[] = {{932, "=?shift_jis?B?"}, {65001, "=?utf-8?Q?"}, {0, "=?utf-8?Q?"}, {20866, "=?utf-8?B?"}};
  for (const auto& row : rows) {
    const EmailPtr node = bareNode();
    node->use_codepage(row.codePage);
    node->setFromFullUtf8("\xE5\xB1\xB1\xE7\x94\xB0 <y@example.com>", quiet);
    const std::string raw(node->m_header.rawValue(0));
    EXPECT_TRUE(beginsWithNoCase(raw, row.begins)) << row.codePage << ": " << raw;
    EXPECT_EQ(fieldOf(*node, "From"), "\xE5\xB1\xB1\xE7\x94\xB0 <y@example.com>") << row.codePage;
    EXPECT_EQ(disagreeingFields(*node), "") << row.codePage;
    EXPECT_NE(writtenHeader(*node).find(raw), std::string::npos)
        << "written once encoded: " << writtenHeader(*node);
  }
}

TEST(Sender, setters_refuse_what_is_no_address) {
  const EmailPtr node = bareNode();
  node->setFromFullUtf8("Ann <ann@example.com>", quiet);
  const std::string before = writtenHeader(*node);
  node->setFromAddr("nobody", quiet);
  node->setFromAddr(nullptr, quiet);
  node->setFromFullUtf8("nobody", quiet);
  node->setFromFullUtf8(nullptr, quiet);
  EXPECT_EQ(writtenHeader(*node), before);
  EXPECT_EQ(node->m_fromAddr.m_name.view(), "Ann");
  EXPECT_EQ(node->m_fromAddr.m_address.view(), "ann@example.com");
}

TEST(Sender, deliberate_empty_name_leaves_the_field_until_the_next_rewrite) {
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    const EmailPtr node = bareNode();
    node->setFromFullUtf8("Ann <ann@example.com>", quiet);
    node->setFromName(none, quiet);
    EXPECT_TRUE(node->m_fromAddr.m_name.isEmpty());
    EXPECT_EQ(fieldOf(*node, "From"), "Ann <ann@example.com>");
    node->updateFromInHeader(quiet);
    EXPECT_EQ(fieldOf(*node, "From"), "ann@example.com");
  }
}

TEST(Sender, names_lose_their_line_breaks) {
  const EmailPtr node = bareNode();
  node->setFromAddr("ann@example.com", quiet);
  node->setFromName("A\r\nBcc: all@example.com\nB", quiet);
  EXPECT_EQ(node->m_fromAddr.m_name.view(), "ABcc: all@example.comB");
  EXPECT_FALSE(node->hasHeaderField("Bcc", quiet));
  EXPECT_EQ(disagreeingFields(*node), "");
}

TEST(Sender, address_with_a_line_break_forges_no_field) {
  const EmailPtr node = bareNode();
  node->setFromAddr("ann@example.com\r\nBcc: all@example.com", quiet);
  StringBuffer address;
  node->getFromAddrUtf8(address);
  EXPECT_EQ(address.view(), "ann@example.comBcc: all@example.com");
  MimeHeader written;
  written.loadMimeHeaderText(writtenHeader(*node) + "\r\n", quiet);
  EXPECT_EQ(written.findField("Bcc"), -1) << writtenHeader(*node);
}

TEST(Sender, bounces_go_to_the_first_one) {
  const EmailPtr node = bareNode();
  node->setFromFullUtf8("first@example.com", quiet);
  node->setFromFullUtf8("second@example.com", quiet);
  EXPECT_EQ(fieldOf(*node, "From"), "second@example.com");
  EXPECT_EQ(fieldOf(*node, "SVX-Bounce-Address"), "first@example.com");
  EXPECT_EQ(reversePath(*node), "first@example.com");
}

TEST(Sender, and_recipients_and_date_say_what_they_could_not_use) {
  const EmailPtr node = bareNode();
  LogMemory log;
  node->setFromFullUtf8("root; Ann <ann@example.com>, b@x", log);
  node->setReplyToUtf8("nobody else", log);
  node->addMultipleRecip(1, "\"Two words\", c@x, root", log);
  node->setDate("so\r\non", log, false);
  std::string said;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == LogEntry::Kind::Info) said += entry.text + "\n";
  EXPECT_EQ(said,
            "Not used as an address: <root>\nNot used as an address: b@x\n"
            "Not used as an address: nobody else\nNot used as an address: Two words\n"
            "Not used as a date: so on\n");
}

TEST(Sender, is_shown_from_the_record_or_else_from_the_field) {
  const struct {
    const char* name;
    const char* address;
    const char* field;
    const char* full;
    const char* friendly;
  } rows[] = {
      {"J\xC3\xB6rg", "j@example.com", "x", "J\xC3\xB6rg <j@example.com>", "J\xC3\xB6rg"},
      {"", "j@example.com", "x", "j@example.com", ""},
      {"Ann", "", "=?utf-8?Q?J=C3=B6?= <j@e>", "J\xC3\xB6 <j@e>", "Ann"},
      {"", "", "\"Ann \"The\" B\" <a@e>", "\"Ann \"The\" B\" <a@e>", "Ann \"The\" B"},
      {"", "", "undisclosed", "undisclosed", "undisclosed"},
      {"", "", nullptr, "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(viewOf(row.field));
    const EmailPtr node = bareNode();
    node->m_fromAddr.m_name.setFromUtf8(row.name);
    node->m_fromAddr.m_address.setFromUtf8(row.address);
    if (row.field) node->m_header.addMimeField("From", row.field, true, quiet);
    StringBuffer full("+"), friendly("+");
    node->getFromFullUtf8(full, quiet);
    node->getFromNameUtf8(friendly, quiet);
    EXPECT_EQ(full.view(), std::string("+") + row.full);
    EXPECT_EQ(friendly.view(), std::string("+") + row.friendly);
    EXPECT_EQ(node->m_fromAddr.m_name.view(), row.friendly) << "a name read from the field is kept";
  }
}

TEST(Sender, reverse_path_comes_from_the_first_source_that_has_one_deliberately_whole_from_reply_to) {
  const struct {
    const char* header;
    const char* sender;
    const char* path;
    const char* tag;
  } rows[] = {
      {"Reply-To: <r@e>\nFrom: F <f@e>\nReturn-Path: <p@e>\nSVX-Bounce-Address: <b@e>\n", "s@e", "b@e",
       "fromSvxBounceAddr"},
      {"Reply-To: <r@e>\nFrom: F <f@e>\nReturn-Path: <p@e>\nSVX-Bounce-Address: <>\n", "s@e", "p@e",
       "fromReturnPath"},
      {"Reply-To: <r@e>\nFrom: F <f@e>\nReturn-Path: < >\n", "s@e", "s@e", "fromAddr822"},
      {"Reply-To: <r@e>\nFrom: F <f@e>, G <g@e>\n", "", "f@e", "fromMimeHeader"},
      {"Reply-To: <r@e>\nFrom: =?utf-8?Q?evil=40x=2Ecom=2C?= <f@e>\n", "", "f@e", "fromMimeHeader"},
      {"Reply-To: R Name <r@e>\nFrom: nobody\n", "", "R Name r@e", "fromReplyTo"},
      {"Subject: s\n", "", "", "fromNothing"},
  };
  for (const auto& row : rows) {
    const EmailPtr node = bareNode();
    node->m_header.loadMimeHeaderText(row.header, quiet);
    node->m_fromAddr.m_address.setFromUtf8(row.sender);
    LogMemory log;
    EXPECT_EQ(reversePath(*node, log), row.path) << row.header;
    EXPECT_EQ(log.text(), "") << row.header;
    log.m_verboseLogging = true;
    EXPECT_EQ(reversePath(*node, log), row.path) << row.header;
    ASSERT_EQ(log.entries().size(), 3u) << log.text();
    EXPECT_EQ(log.entries()[0].text, "getSmtpReversePath");
    const bool readBefore = std::string_view(row.tag) == "fromMimeHeader";  // and kept as the sender since
    EXPECT_EQ(log.entries()[1].tag, readBefore ? "fromAddr822" : row.tag) << row.header;
  }
}

TEST(Sender, encoded_words_never_become_an_envelope_sender) {
  const char* word = "=?utf-8?q?victim=40bank.test?=@evil.test";
  for (const char* sender : {word, "j\xC3\xB6rg@b\xC3\xBC.test"}) {
    const EmailPtr node = bareNode();
    node->setFromFullUtf8(sender, quiet);
    EXPECT_EQ(reversePath(*node), sender);
    const EmailPtr again = bareNode();
    again->m_header.loadMimeHeaderText(writtenHeader(*node), quiet);
    EXPECT_EQ(reversePath(*again), sender) << writtenHeader(*node);
  }
  for (const char* field : {"SVX-Bounce-Address", "Return-Path", "Reply-To"}) {
    const EmailPtr node = bareNode();
    node->m_header.loadMimeHeaderText(std::string(field) + ": <" + word + ">\r\n", quiet);
    EXPECT_EQ(reversePath(*node), word) << field;
  }
}

TEST(Sender, envelope_sender_holds_no_line_break) {
  const EmailPtr node = bareNode();
  node->m_fromAddr.m_address.setFromUtf8N("a@b\r\nRCPT TO:\0x", 16);
  EXPECT_EQ(reversePath(*node), "a@bRCPT TO:x");
  const EmailPtr received = bareNode();
  received->m_header.loadMimeHeaderText(std::string_view("Return-Path: a@b\r\n .te\0st\n", 27), quiet);
  EXPECT_EQ(reversePath(*received), "a@b .test");
}

TEST(Sender, too_long_for_a_line_is_in_no_field) {
  const EmailPtr node = bareNode();
  node->setFromAddr((std::string(991, 'a') + "boss@corp.test").c_str(), quiet);
  EXPECT_EQ(writtenHeader(*node), "From:");
}

TEST(Sender, reply_to_is_one_address_or_none) {
  const struct {
    const char* text;
    const char* field;
  } rows[] = {
      {"Ann <ann@example.com>", "Ann <ann@example.com>"},
      {"J\xC3\xB6rg <j@example.com>", "J\xC3\xB6rg <j@example.com>"},
      {nullptr, "(none)"},
      {" \t", "(none)"},
      {"nobody", "(none)"},
  };
  for (const auto& row : rows) {
    const EmailPtr node = bareNode();
    node->m_header.addMimeField("REPLY-TO", "old@example.com", false, quiet);
    if (std::string_view(row.field) == "(none)")
      node->m_header.addMimeField("Reply-To", "older@example.com", false, quiet);
    node->setReplyToUtf8(row.text, quiet);
    EXPECT_EQ(fieldOf(*node, "Reply-To"), row.field);
  }
}

// Recipients

EmailPtr withRecipients() {
  EmailPtr node = bareNode();
  node->addMultipleRecip(1, "T1 <t1@e.com>, t2@e.com", quiet);
  node->addMultipleRecip(2, "C1 <c1@e.com>", quiet);
  node->addMultipleRecip(3, "B1 <b1@e.com>, b2@e.com, b3@e.com", quiet);
  return node;
}

TEST(Recipients, deliberate_other_kinds_mean_to_here_and_bcc_there) {
  const struct {
    int kind;
    int count;
    const char* read;     // address, name and full text of the first entry
    const char* all;      // getAllRecipients
    const char* cleared;  // what is left in To, Cc, Bcc
    const char* typed;    // addRecipientsForType
  } rows[] = {
      {1, 2, "t1@e.com T1 T1 <t1@e.com>", "T1 <t1@e.com>, t2@e.com", "|c1@e.com|b1@e.com,b2@e.com,b3@e.com",
       "t1@e.com t2@e.com"},
      {2, 1, "c1@e.com C1 C1 <c1@e.com>", "C1 <c1@e.com>", "t1@e.com,t2@e.com||b1@e.com,b2@e.com,b3@e.com",
       "c1@e.com"},
      {3, 3, "b1@e.com B1 B1 <b1@e.com>", "B1 <b1@e.com>, b2@e.com, b3@e.com", "t1@e.com,t2@e.com|c1@e.com|",
       "b1@e.com b2@e.com b3@e.com"},
      {0, 2, "b1@e.com B1 B1 <b1@e.com>", "", "|c1@e.com|b1@e.com,b2@e.com,b3@e.com", "b1@e.com b2@e.com"},
      {4, 2, "b1@e.com B1 B1 <b1@e.com>", "", "|c1@e.com|b1@e.com,b2@e.com,b3@e.com", "b1@e.com b2@e.com"},
      {-1, 2, "b1@e.com B1 B1 <b1@e.com>", "", "|c1@e.com|b1@e.com,b2@e.com,b3@e.com", "b1@e.com b2@e.com"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.kind);
    const EmailPtr node = withRecipients();
    EXPECT_EQ(node->getNumRecipients(row.kind), row.count);
    StringBuffer read, all;
    EXPECT_TRUE(node->getRecipientAddrUtf8(row.kind, 0, read));
    read.appendChar(' ');
    EXPECT_TRUE(node->getRecipientNameUtf8(row.kind, 0, read));
    read.appendChar(' ');
    EXPECT_TRUE(node->getRecipientFullUtf8(row.kind, 0, read, quiet));
    EXPECT_EQ(read.view(), row.read);
    EXPECT_FALSE(node->getRecipientAddrUtf8(row.kind, 3, read));
    EXPECT_FALSE(node->getRecipientNameUtf8(row.kind, -1, read));
    EXPECT_FALSE(node->getRecipientFullUtf8(row.kind, 3, read, quiet));
    node->getAllRecipients(row.kind, all, quiet);
    EXPECT_EQ(all.view(), row.all);

    ExtPtrArraySb typed;
    EXPECT_TRUE(node->addRecipientsForType(row.kind, typed, ExtPtrArray(), quiet));
    std::string joined;
    for (int i = 0; i < typed.getSize(); ++i) joined.append(i ? " " : "").append(typed.sbAt(i)->view());
    EXPECT_EQ(joined, row.typed);

    node->clearRecipients(row.kind);
    EXPECT_EQ(
        addresses(node->m_toAddrs) + "|" + addresses(node->m_ccAddrs) + "|" + addresses(node->m_bccAddrs),
        row.cleared);
    EXPECT_EQ(disagreeingFields(*node), "");
  }
}

TEST(Recipients, deliberate_adding_writes_the_field_of_its_kind_only) {
  const struct {
    int kind;
    const char* options;
    const char* one;      // header after addRecipient
    const char* several;  // header after addMultipleRecip
  } rows[] = {
      {1, "", "To: A <a@e.com>", "To: A <a@e.com>"},
      {2, "", "Cc: A <a@e.com>", "CC: A <a@e.com>"},
      {3, "", "", ""},
      {3, "x,USEbccHEADER", "Bcc: A <a@e.com>", ""},
      {0, "UseBccHeader", "", ""},
      {7, "UseBccHeader", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.kind) + row.options);
    LogNull log;
    log.m_options.setString(row.options);
    const EmailPtr one = bareNode(), several = bareNode();
    EXPECT_TRUE(one->addRecipient(row.kind, " A ", " a@e.com ", log));
    EXPECT_EQ(writtenHeader(*one), row.one);
    EXPECT_EQ(several->addMultipleRecip(row.kind, "A <a@e.com>", log), 1);
    EXPECT_EQ(writtenHeader(*several), row.several);
    EXPECT_EQ(one->getNumRecipients(row.kind), 1);
    EXPECT_EQ(several->getNumRecipients(row.kind), 1);
  }
}

TEST(Recipients, nothing_added_is_nothing_written) {
  const EmailPtr node = bareNode();
  for (const char* address : {static_cast<const char*>(nullptr), ""})
    EXPECT_FALSE(node->addRecipient(1, "Name", address, quiet));
  for (const char* list : {static_cast<const char*>(nullptr), "", " , ;", "Group:;"})
    EXPECT_EQ(node->addMultipleRecip(1, list, quiet), 0) << viewOf(list);
  EXPECT_EQ(node->getNumHeaderFields(), 0);
}

TEST(Recipients, fields_hold_the_whole_list) {
  const EmailPtr node = bareNode();
  node->addRecipient(1, "J\xC3\xB6rg", "j@e.com", quiet);
  node->addRecipient(1, nullptr, "k@e.com", quiet);
  EXPECT_EQ(node->addMultipleRecip(1, "\"L, M\" <l@e.com>; n@e.com", quiet), 2);
  EXPECT_EQ(fieldOf(*node, "To"), "J\xC3\xB6rg <j@e.com>, k@e.com, \"L, M\" <l@e.com>, n@e.com");
  EXPECT_EQ(disagreeingFields(*node), "");
}

TEST(Recipients, field_says_what_the_list_says_whatever_happened_before) {
  const std::function<void(Email2&)> changes[] = {
      [](Email2&) {},
      [](Email2& e) { e.m_toAddrs.at<_svEmailAddress>(0)->m_name.setFromUtf8("K\xC3\xB6nig"); },
      [](Email2& e) { const Owned<SorvikObject> gone(e.m_toAddrs.removeAt(0)); },
      [](Email2& e) { e.addRecipient(7, "Silent", "s@e.com", quiet); },
      [](Email2& e) { e.addRecipient(2, "Copy", "c@e.com", quiet); },
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
  }
}

TEST(Recipients, are_copied_after_those_that_are_there) {
  const EmailPtr source = withRecipients(), target = bareNode();
  target->addRecipient(1, "\xE3\x81\x82", "t0@e.com", quiet);
  target->use_codepage(932);
  target->copyRecipients(*source);
  EXPECT_EQ(addresses(target->m_toAddrs), "t0@e.com,t1@e.com,t2@e.com");
  EXPECT_EQ(addresses(target->m_ccAddrs), "c1@e.com");
  EXPECT_EQ(addresses(target->m_bccAddrs), "b1@e.com,b2@e.com,b3@e.com");
  EXPECT_FALSE(target->hasHeaderField("Bcc", quiet));
  EXPECT_EQ(disagreeingFields(*target), "");
}

TEST(Recipients, bcc_can_leave_the_header_alone) {
  LogNull log;
  log.m_options.setString("UseBccHeader");
  const EmailPtr node = bareNode();
  node->addRecipient(3, nullptr, "b@e.com", log);
  node->clearBccFromHeader();
  EXPECT_EQ(node->getNumHeaderFields(), 0);
  EXPECT_EQ(node->getNumRecipients(3), 1);
}

TEST(Recipients, all_addresses_are_joined_without_blanks) {
  const EmailPtr node = withRecipients();
  StringBuffer out("old");
  node->getAllRecipientAddresses(out);
  EXPECT_EQ(out.view(), "t1@e.com,t2@e.com,c1@e.com,b1@e.com,b2@e.com,b3@e.com");
  bareNode()->getAllRecipientAddresses(out);
  EXPECT_EQ(out.view(), "");
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
  std::string joined;
  for (int i = 0; i < out.getSize(); ++i) joined.append(out.sbAt(i)->view()).append(" ");
  EXPECT_EQ(joined, "known@e.com a@e.com A@e.com b@new.com ");
  ASSERT_EQ(log.entries().size(), 8u) << "one context around three, of the same name deliberately\n"
                                      << log.text();
  EXPECT_EQ(log.entries()[0].text, "getAllRecipientAddressesA");
  EXPECT_EQ(log.entries()[1].context, "getAllRecipientAddressesA");
  EXPECT_EQ(log.entries()[1].text, "getAllRecipientAddressesA");
}

TEST(Recipients, deliberate_counting_in_to_and_reading_from_bcc_can_run_out) {
  const EmailPtr node = bareNode();
  node->addMultipleRecip(1, "a@e.com, b@e.com", quiet);
  node->addMultipleRecip(3, "c@e.com", quiet);
  ExtPtrArraySb out;
  EXPECT_FALSE(node->addRecipientsForType(0, out, ExtPtrArray(), quiet));
  ASSERT_EQ(out.getSize(), 1);
  EXPECT_EQ(out.sbAt(0)->view(), "c@e.com");
}

}  // namespace
}  // namespace mailtree
