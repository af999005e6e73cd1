#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mailtree/email/Email2.h"
#include "tests/support/fields.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

/// The members that routed fields are parsed into, those that are set.
std::string members(const Email2& node) {
  std::string out;
  const auto add = [&out](const char* name, std::string_view value) {
    if (!value.empty()) out.append(out.empty() ? "" : " ").append(name).append("=").append(value);
  };
  add("name", node.m_fromAddr.m_name.view());
  add("addr", node.m_fromAddr.m_address.view());
  add("id", node.m_contentId);
  add("type", node.m_contentType.m_type);
  add("enc", node.m_transferEncoding);
  return out;
}

/// All fields as "Name: value" lines.
std::string fields(const Email2& node) {
  std::string out;
  StringBuffer name, value;
  for (int i = 0; i < node.getNumHeaderFields(); ++i) {
    node.getHeaderFieldName(i, name, quiet);
    node.getHeaderFieldValue(i, value, quiet);
    out.append(name.view()).append(": ").append(value.view()).append("\n");
  }
  return out;
}

struct SetRow {
  const char* name;
  const char* value;
  const char* fields;
  const char* members;
};

constexpr SetRow kSameForSetAndAdd[] = {
    {"X-Any", "a\r\nBcc: b\rc\nd", "X-Any: aBcc: bcd\n", ""},
    {"sUBJECT",
     "Gr\xC3\xBC\xC3\x9F"
     "e",
     "sUBJECT: Gr\xC3\xBC\xC3\x9F"
     "e\n",
     ""},
    {"X-Empty", "", "X-Empty: \n", ""},
    {"", "no name", "", ""},
    {nullptr, "no name", "", ""},
    {"cONTENT-iD", "<a@b>", "Content-ID: <a@b>\n", "id=<a@b>"},
    {"content-transfer-encoding", "base64 ", "Content-Transfer-Encoding: base64 \n", "enc=base64"},
    {"content-type", "Text/HTML; charset=utf-8", "content-type: Text/HTML; charset=utf-8\n",
     "type=text/html"},
    {"reply-to", "Ann <ann@example.com>", "Reply-To: Ann <ann@example.com>\n", ""},
    {"reply-to", "nobody", "", ""},
    {"fROM", "Ann <ann@example.com>", "From: Ann <ann@example.com>\nSVX-Bounce-Address: ann@example.com\n",
     "name=Ann addr=ann@example.com"},
    {"To", "ann@example.com", "To: ann@example.com\n", ""},
    {"Content-Disposition", "attachment", "Content-Disposition: attachment\n", ""},
};

TEST(Headers, set_and_add_route_names_and_never_take_a_line_break) {
  for (const SetRow& row : kSameForSetAndAdd) {
    SCOPED_TRACE(viewOf(row.name));
    for (const auto act : {&Email2::setHeaderField, &Email2::addHeaderField2}) {
      const EmailPtr node = bareNode();
      ((*node).*act)(row.name, row.value, quiet);
      EXPECT_EQ(fields(*node), row.fields);
      EXPECT_EQ(members(*node), row.members);
    }
  }
}

TEST(Headers, routed_dates_are_read_and_kept_as_written) {
  const EmailPtr node = bareNode();
  const char* text = "Sat, 21 Nov 2026 08:30:00 +0100";
  node->setHeaderField("date", text, quiet);
  EXPECT_EQ(fields(*node), std::string("Date: ") + text + "\n");
  const SorvikSysTime read = node->m_date;
  EXPECT_EQ(read.m_hour, 7);

  node->addHeaderField2("DATE", "when it suits me", quiet);
  EXPECT_EQ(fields(*node), "Date: when it suits me\n");
  EXPECT_TRUE(node->m_date == read) << "an unreadable date changes only the field";
}

TEST(Headers, deliberate_bare_sender_name_is_all_the_field_holds_and_add_takes_none) {
  const EmailPtr node = bareNode();
  node->setHeaderField("From", "Ann <ann@example.com>", quiet);
  node->setHeaderField("From", "Bob\r\n Barker", quiet);
  EXPECT_EQ(members(*node), "name=Bob Barker addr=ann@example.com");
  EXPECT_EQ(fieldOf(*node, "From"), "Bob Barker");
  EXPECT_EQ(fieldOf(*node, "SVX-Bounce-Address"), "ann@example.com");

  node->addHeaderField2("From", "Carl", quiet);
  EXPECT_EQ(members(*node), "name=Bob Barker addr=ann@example.com");
  EXPECT_EQ(fieldOf(*node, "From"), "Bob Barker");
}

TEST(Headers, unreadable_sender_with_an_at_sign_changes_nothing) {
  const EmailPtr node = bareNode();
  node->setHeaderField("From", "Ann <ann@example.com>", quiet);
  const std::string before = fields(*node);
  for (const char* value : {"@", "Bob <@>"}) {
    node->setHeaderField("From", value, quiet);
    node->addHeaderField2("From", value, quiet);
    EXPECT_EQ(fields(*node), before) << value;
    EXPECT_EQ(members(*node), "name=Ann addr=ann@example.com") << value;
  }
}

TEST(Headers, deliberate_adding_repeats_ordinary_fields_and_replaces_routed_ones) {
  const EmailPtr node = bareNode();
  for (const char* value : {"text/plain", "text/html"}) {
    node->addHeaderField2("X-Any", value, quiet);
    node->addHeaderField2("Content-Type", value, quiet);
    node->addHeaderField2("Content-ID", value, quiet);
  }
  EXPECT_EQ(fields(*node),
            "X-Any: text/plain\nContent-Type: text/html\nContent-ID: text/html\nX-Any: text/html\n");
  node->setHeaderField("X-ANY", "z", quiet);
  EXPECT_EQ(fieldNames(*node), (std::vector<std::string>{"X-ANY", "Content-Type", "Content-ID", "X-Any"}));
}

TEST(Headers, content_type_gives_the_email_its_charset_only_while_it_has_none) {
  const EmailPtr node = bareNode();
  node->setHeaderField("Content-Type", "text/plain; charset=koi8-r", quiet);
  EXPECT_STREQ(node->get_charset_name(), "koi8-r");
  node->setHeaderField("Content-Type", "text/plain; charset=utf-8", quiet);
  EXPECT_STREQ(node->get_charset_name(), "koi8-r");
}

TEST(Headers, null_value_removes_on_set_and_does_nothing_on_add) {
  for (const char* name : {"X-Any", "Content-ID", "Content-Type", "Content-Transfer-Encoding"}) {
    const EmailPtr node = bareNode();
    node->setHeaderField(name, "a/b", quiet);
    node->addHeaderField2(name, nullptr, quiet);
    EXPECT_EQ(fieldOf(*node, name), "a/b") << name;
    node->setHeaderField(name, nullptr, quiet);
    EXPECT_EQ(fields(*node) + members(*node), "") << name;
  }
}

TEST(Headers, removal_takes_every_field_and_the_member_behind_it) {
  const struct {
    const char* name;
    std::string (*left)(const Email2&);
  } rows[] = {
      {"to", [](const Email2& n) { return std::to_string(n.getNumRecipients(1)); }},
      {"CC", [](const Email2& n) { return std::to_string(n.getNumRecipients(2)); }},
      {"from", [](const Email2& n) { return std::string(n.m_fromAddr.m_address.view()); }},
      {"content-id", [](const Email2& n) { return std::string(n.m_contentId.view()); }},
      {"CONTENT-TYPE", [](const Email2& n) { return std::string(n.m_contentType.m_type.view()); }},
      {"content-disposition",
       [](const Email2& n) {
         return std::string(n.m_disposition.view()) + std::string(n.m_dispFilename.view());
       }},
      {"content-transfer-encoding", [](const Email2& n) { return std::string(n.m_transferEncoding.view()); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const EmailPtr email(new Email2);
    email->addMultipleRecip(1, "a@example.com, b@example.com", quiet);
    email->addMultipleRecip(2, "c@example.com", quiet);
    email->setFromFullUtf8("d@example.com", quiet);
    email->setContentId("<e@f>", quiet);
    email->setContentDispositionUtf8("attachment", "g.txt", quiet);
    email->m_header.addMimeField(row.name, "twice", false, quiet);
    const int before = email->getNumHeaderFields();
    email->removeHeaderField(row.name);
    EXPECT_FALSE(email->hasHeaderField(row.name, quiet));
    EXPECT_EQ(email->getNumHeaderFields(), before - 2);
    EXPECT_TRUE(row.left(*email) == "" || row.left(*email) == "0") << row.left(*email);
  }
}

TEST(Headers, deliberate_removing_bcc_or_date_keeps_what_was_parsed) {
  LogNull log;
  log.m_options.setString("usebccheader");
  const EmailPtr email(new Email2);
  email->addRecipient(3, nullptr, "hidden@example.com", log);
  ASSERT_TRUE(email->hasHeaderField("Bcc", quiet));
  const SorvikSysTime date = email->m_date;
  email->removeHeaderField("BCC");
  email->removeHeaderField("date");
  EXPECT_FALSE(email->hasHeaderField("Bcc", quiet));
  EXPECT_EQ(email->getNumRecipients(3), 1);
  EXPECT_TRUE(email->m_date == date);
}

TEST(Headers, getters_replace_their_output) {
  const EmailPtr node = bareNode();
  using Get = bool (Email2::*)(StringBuffer&, LogBase&) const;
  const struct {
    const char* name;
    Get get;
  } rows[] = {{"Subject", &Email2::getSubjectUtf8},
              {"Reply-To", &Email2::getReplyToUtf8},
              {"X-Mailer", &Email2::getMailerUtf8},
              {"X-UIDL", &Email2::getUidlUtf8}};
  for (const auto& row : rows) {
    StringBuffer out("old");
    EXPECT_FALSE(((*node).*row.get)(out, quiet)) << row.name;
    EXPECT_EQ(out.view(), "") << row.name;
    node->m_header.addMimeField(row.name, "=?utf-8?Q?=C3=A9?=", true, quiet);
    EXPECT_TRUE(((*node).*row.get)(out, quiet)) << row.name;
    EXPECT_EQ(out.view(), "\xC3\xA9") << row.name;
  }
  XString x("old");
  EXPECT_FALSE(node->getHeaderFieldX("X-None", x, quiet));
  EXPECT_TRUE(x.isEmpty());
  EXPECT_TRUE(node->getHeaderFieldX("subject", x, quiet));
  EXPECT_EQ(x.view(), "\xC3\xA9");
}

TEST(Headers, attachment_headers_are_set_by_index) {
  const EmailPtr root = buildTree("mixed(plain,pdf:attachment,png:attachment)");
  LogMemory log;
  EXPECT_TRUE(root->setAttachmentHeader(1, "Content-ID", "<x@y>", log));
  EXPECT_EQ(root->getPart(2)->m_contentId.view(), "<x@y>");
  EXPECT_EQ(log.text(), "");
  EXPECT_FALSE(root->setAttachmentHeader(2, "Content-ID", "<x@y>", log));
  ASSERT_EQ(log.entries().size(), 1u);
  EXPECT_EQ(log.entries()[0].kind, LogEntry::Kind::Error);
  EXPECT_EQ(log.entries()[0].text, "Failed to find attachment sub-part.");
}

TEST(Headers, copying_a_header_replaces_fields_members_and_recipients_only) {
  const EmailPtr source = buildTree("mixed[name=n](plain)"),
                 target = buildTree("related[body=kept](png,pdf)");
  source->setFromFullUtf8("Ann <ann@example.com>", quiet);
  source->addMultipleRecip(1, "J\xC3\xB6rg <j@example.com>, k@example.com", quiet);
  source->addRecipient(2, nullptr, "l@example.com", quiet);
  source->addRecipient(3, nullptr, "m@example.com", quiet);
  source->setDate("Sat, 21 Nov 2026 08:30:00 +0100", quiet, true);
  source->setContentDispositionUtf8("inline", "f.txt", quiet);
  source->setContentId("<i@j>", quiet);
  target->setFromFullUtf8("old@example.com", quiet);
  target->addRecipient(1, nullptr, "old@example.com", quiet);
  target->addRecipient(3, nullptr, "old@example.com", quiet);

  target->copyHeader(*source, quiet);
  StringBuffer all;
  target->getAllRecipientAddresses(all);
  EXPECT_EQ(all.view(), "j@example.com,k@example.com,l@example.com,m@example.com");
  EXPECT_EQ(fieldOf(*target, "To"), fieldOf(*source, "To"));
  EXPECT_EQ(target->m_fromAddr.m_address.view(), "ann@example.com");
  EXPECT_TRUE(target->m_date == source->m_date);
  EXPECT_EQ(printTree(target, TreeDetail::names), "mixed[name=n,file=f.txt]:inline(png,pdf)");
  EXPECT_EQ(target->m_body.view(), "kept");
  EXPECT_EQ(disagreeingFields(*target), "");

  const std::string before = fields(*source);
  source->copyHeader(*source, quiet);
  EXPECT_EQ(fields(*source), before) << "copied onto itself";
  EXPECT_EQ(source->getNumRecipients(1), 2);
}

TEST(Headers, members_and_fields_agree_after_every_setter) {
  const struct {
    const char* name;
    void (*set)(Email2&);
  } rows[] = {
      {"encoding of text", [](Email2& n) { n.setContentEncodingRecursive("quoted-printable", quiet); }},
      {"date", [](Email2& n) { n.setHeaderField("Date", "1 Jan 2000 00:00:00 -0500", quiet); }},
      {"from", [](Email2& n) { n.setHeaderField("From", "\"B, C\" <b@example.com>", quiet); }},
      {"from 8bit", [](Email2& n) { n.addHeaderField2("From", "J\xC3\xB6rg <b@example.com>", quiet); }},
      {"from encoded",
       [](Email2& n) { n.setHeaderField("From", "=?utf-8?Q?J=C3=B6?= <b@example.com>", quiet); }},
      {"from name", [](Email2& n) { n.setFromName("M\xC3\xBCller, J.", quiet); }},
      {"from address", [](Email2& n) { n.setFromAddr("other@example.com", quiet); }},
      {"from removed", [](Email2& n) { n.removeHeaderField("From"); }},
      {"to", [](Email2& n) { n.addRecipient(1, "A (b) \"c\"", "a@example.com", quiet); }},
      {"to several",
       [](Email2& n) { n.addMultipleRecip(1, "x@example.com; \"Y, Z\" <y@example.com>", quiet); }},
      {"cc", [](Email2& n) { n.addRecipient(2, "\xE3\x81\x82", "a@example.com", quiet); }},
      {"cc several", [](Email2& n) { n.addMultipleRecip(2, "x@example.com,", quiet); }},
      {"recipients removed", [](Email2& n) { n.clearRecipients(1), n.removeHeaderField("Cc"); }},
      {"type",
       [](Email2& n) { n.setHeaderField("Content-Type", "multipart/mixed; boundary=\"a b\"; x=y", quiet); }},
      {"all parameters",
       [](Email2& n) {
         n.setContentTypeUtf8("Text/X", "n\xC3\xA4m\"e", "p/q", "sha-256", 65001, "b=_b", "s", "T/U", quiet);
       }},
      {"type fixed", [](Email2& n) { n.fixContentTypeUtf8("application/pdf", quiet); }},
      {"subtype", [](Email2& n) { n.setContentSubtype(" Text/HTML ", quiet); }},
      {"name", [](Email2& n) { n.setName("a b;c\\d.txt", quiet); }},
      {"type removed", [](Email2& n) { n.setHeaderField("content-type", nullptr, quiet); }},
      {"content id", [](Email2& n) { n.setContentId("<x@y>", quiet); }},
      {"content id null", [](Email2& n) { n.setContentId(nullptr, quiet); }},
      {"content id made", [](Email2& n) { n.generateContentId(quiet); }},
      {"encoding", [](Email2& n) { n.setContentEncodingNonRecursive(" 8bit ", quiet); }},
      {"encoding by code page", [](Email2& n) { n.setEncodingViaCodePage(932, 0, quiet); }},
      {"encoding null", [](Email2& n) { n.setContentEncodingNonRecursive(nullptr, quiet); }},
      {"disposition", [](Email2& n) { n.setContentDisposition1("inline", quiet); }},
      {"disposition and name",
       [](Email2& n) { n.setContentDispositionUtf8("attachment", "\xC3\xA9 a.txt", quiet); }},
      {"disposition again", [](Email2& n) { n.setContentDisposition1("inline", quiet); }},
      {"file name", [](Email2& n) { n.setFilenameUtf8("other.txt", quiet); }},
      {"file name null", [](Email2& n) { n.setFilenameUtf8(nullptr, quiet); }},
      {"date reset", [](Email2& n) { n.resetDate(quiet); }},
  };
  const EmailPtr fresh(new Email2), used(new Email2);
  for (const auto& row : rows) {
    const EmailPtr email(new Email2);
    row.set(*email);
    EXPECT_EQ(disagreeingFields(*email), "") << row.name << " on a new message";
    row.set(*used);
    EXPECT_EQ(disagreeingFields(*used), "") << row.name << " after all before it";
  }
}

TEST(Headers, setters_take_texts_that_live_in_the_node_they_change) {
  const EmailPtr email(new Email2);
  email->setContentTypeUtf8("text/html", "a-rather-long-name-to-be-on-the-heap.html", nullptr, nullptr, 0,
                            nullptr, nullptr, nullptr, quiet);
  const _svContentType& type = email->m_contentType;
  email->setContentTypeUtf8(type.m_type.getString(), type.m_name.getString(), nullptr, nullptr, 0, nullptr,
                            nullptr, nullptr, quiet);
  EXPECT_EQ(type.m_type.view(), "text/html");
  EXPECT_EQ(type.m_name.view(), "a-rather-long-name-to-be-on-the-heap.html");
  email->setContentDispositionUtf8("attachment", type.m_name.getString(), quiet);
  email->setFilenameUtf8(email->m_dispFilename.getString(), quiet);
  EXPECT_EQ(email->m_dispFilename.view(), "a-rather-long-name-to-be-on-the-heap.html");
  email->setFromFullUtf8("A Rather Long Name On The Heap <a@example.com>", quiet);
  email->setFromName(email->m_fromAddr.m_name.getUtf8(), quiet);
  EXPECT_EQ(email->m_fromAddr.m_name.view(), "A Rather Long Name On The Heap");
  email->setFromName(email->m_fromAddr.m_name.getUtf8() + 2, quiet);
  EXPECT_EQ(email->m_fromAddr.m_name.view(), "Rather Long Name On The Heap");
  email->setContentEncodingRecursive("quoted-printable-and-so-on", quiet);
  email->setContentEncodingRecursive(email->m_transferEncoding.getString(), quiet);
  EXPECT_EQ(fieldOf(*email, "Content-Transfer-Encoding"), "quoted-printable-and-so-on");
  EXPECT_EQ(disagreeingFields(*email), "");
}

}  // namespace
}  // namespace mailtree
