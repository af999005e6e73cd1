#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/email/cases.h"
#include "tests/support/fields.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

/// What fields are parsed into.
std::vector<std::string> members(const Email2& node) {
  std::vector<std::string> out;
  for (int kind = 1; kind <= 3; ++kind)
    out.emplace_back(static_cast<std::size_t>(node.getNumRecipients(kind)), '@');
  for (const std::string_view member :
       {node.m_fromAddr.m_address.view(), node.m_contentId.view(), node.m_contentType.m_type.view(),
        node.m_disposition.view(), node.m_transferEncoding.view(), node.m_dispFilename.view()})
    out.emplace_back(member);
  return out;
}

/// Sets and adds fields: "set To=a@b ; add X=y", and "do" is the verb.
void change(Email2& node, std::string_view steps, std::string_view verb) {
  while (!steps.empty()) {
    const std::string_view step = steps.substr(0, steps.find(" ; "));
    steps.remove_prefix(std::min(step.size() + 3, steps.size()));
    const std::string name(step.substr(step.find(' ') + 1, step.find('=') - step.find(' ') - 1));
    const std::string value(step.substr(step.find('=') + 1));
    const bool isAdd = (step.starts_with("do") ? verb : step).starts_with("add");
    ((node).*(isAdd ? &Email2::addHeaderField2 : &Email2::setHeaderField))(name.c_str(), value.c_str(),
                                                                           quiet);
  }
}

TEST(Headers, set_and_add_route_names_and_never_take_a_line_break) {
  // Deliberate: a bare name is all that From then holds, an add takes none, and adding repeats ordinary fields.
  for (const auto& [steps, fields, parsed] : rowsOf<3>(R"(
    do X-Any=a\r\nBcc: b\rc\nd | X-Any: aBcc: bcd\n |
    do sUBJECT=Grüße | sUBJECT: Grüße\n |
    do X-Empty= | X-Empty: \n |
    do =no name | |
    do cONTENT-iD=<a@b> | Content-ID: <a@b>\n | <a@b>
    do content-transfer-encoding=base64\x20 | Content-Transfer-Encoding: base64 \n | base64
    do content-type=Text/HTML; charset=utf-8 | content-type: Text/HTML; charset=utf-8\n | text/html
    do reply-to=Ann <a@e> | Reply-To: Ann <a@e>\n |
    do reply-to=nobody | |
    do To=a@e | To: a@e\n |
    do fROM=Ann <a@e> | From: Ann <a@e>\nSVX-Bounce-Address: a@e\n | a@e
    set From=Ann <a@e> ; set From=Bob\r\n B ; add From=C | From: Bob B\nSVX-Bounce-Address: a@e\n | a@e
    set From=Ann <a@e> ; do From=@ ; do From=Bob <@> | From: Ann <a@e>\nSVX-Bounce-Address: a@e\n | a@e
    add X-Any=a ; add X-Any=b | X-Any: a\nX-Any: b\n |
    add X-Any=a ; add X-Any=b ; set X-ANY=z | X-ANY: z\nX-Any: b\n |
    do Content-Type=a/b ; do X=y ; do Content-Type=c/d | Content-Type: c/d\nX: y\n | c/d
    do Content-ID=a ; do X=y ; do Content-ID=b | Content-ID: b\nX: y\n | b)"))
    for (const char* verb : {"set", "add"}) {
      const EmailPtr node = bareNode();
      change(*node, steps, verb);
      std::string all;
      for (const std::string& member : members(*node)) all += member;
      EXPECT_EQ(fieldLines(*node) + "-> " + all, fields + "-> " + parsed) << verb << ": " << steps;
    }
}

TEST(Headers, deliberate_bare_sender_name_stays_with_the_address_on_record) {
  const EmailPtr node = bareNode();
  change(*node, "set From=Ann <a@e> ; set From=Bob B ; add From=Carl ; add From=Bob <@>", "");
  EXPECT_EQ(node->m_fromAddr.m_name.view(), "Bob B");
}

TEST(Headers, routed_dates_are_read_and_kept_as_written) {
  const EmailPtr node = bareNode();
  change(*node, "set date=Sat, 21 Nov 2026 08:30:00 +0100", "");
  EXPECT_EQ(fieldLines(*node), "Date: Sat, 21 Nov 2026 08:30:00 +0100\n");
  const SorvikSysTime read = node->m_date;
  EXPECT_EQ(read.m_hour, 7);
  change(*node, "add DATE=when it suits me", "");
  EXPECT_EQ(fieldLines(*node), "Date: when it suits me\n");
  EXPECT_TRUE(node->m_date == read) << "an unreadable date changes only the field";
}

TEST(Headers, content_type_gives_the_email_its_charset_only_while_it_has_none) {
  const EmailPtr node = bareNode();
  change(*node, "set Content-Type=text/plain; charset=koi8-r ; set Content-Type=text/plain; charset=utf-8",
         "");
  EXPECT_STREQ(node->get_charset_name(), "koi8-r");
}

TEST(Headers, null_value_removes_on_set_and_does_nothing_on_add) {
  for (const char* name : {"X-Any", "Content-ID", "Content-Type", "Content-Transfer-Encoding"}) {
    const EmailPtr node = bareNode();
    node->setHeaderField(name, "a/b", quiet);
    node->addHeaderField2(name, nullptr, quiet);
    node->addHeaderField2(nullptr, "no name", quiet);
    EXPECT_EQ(fieldLines(*node), std::string(name) + ": a/b\n");
    node->setHeaderField(name, nullptr, quiet);
    EXPECT_EQ(fieldLines(*node), "");
    EXPECT_EQ(members(*node), members(*bareNode())) << name;
  }
}

TEST(Headers, removal_takes_every_field_and_the_member_behind_it_but_deliberately_no_bcc_or_date) {
  LogNull log;
  log.m_options.setString("UseBccHeader");
  const char* names[] = {"to",
                         "CC",
                         "BCC",
                         "from",
                         "content-id",
                         "CONTENT-TYPE",
                         "content-disposition",
                         "content-transfer-encoding",
                         "date"};
  for (std::size_t i = 0; i < std::size(names); ++i) {
    const EmailPtr email(new Email2);
    for (int kind = 1; kind <= 3; ++kind) email->addRecipient(kind, nullptr, "a@example.com", log);
    email->setFromFullUtf8("d@example.com", quiet);
    email->setContentId("<e@f>", quiet);
    email->setContentDispositionUtf8("attachment", "g.txt", quiet);
    email->m_header.addMimeField(names[i], "twice", false, quiet);
    std::vector<std::string> left = members(*email);
    if (i < 8 && i != 2) left[i] = "";
    if (i == 6) left[8] = "";
    const int before = email->getNumHeaderFields();
    const SorvikSysTime date = email->m_date;
    email->removeHeaderField(names[i]);
    EXPECT_FALSE(email->hasHeaderField(names[i], quiet));
    EXPECT_EQ(email->getNumHeaderFields(), before - 2) << names[i];
    EXPECT_EQ(members(*email), left) << names[i];
    EXPECT_TRUE(email->m_date == date);
  }
}

TEST(Headers, getters_replace_their_output) {
  const EmailPtr node = bareNode();
  const std::pair<const char*, bool (Email2::*)(StringBuffer&, LogBase&) const> rows[] = {
      {"Subject", &Email2::getSubjectUtf8},
      {"Reply-To", &Email2::getReplyToUtf8},
      {"X-Mailer", &Email2::getMailerUtf8},
      {"X-UIDL", &Email2::getUidlUtf8}};
  for (const auto& [name, get] : rows) {
    StringBuffer out("old");
    EXPECT_FALSE(((*node).*get)(out, quiet) || !out.isEmpty()) << name;
    node->m_header.addMimeField(name, "=?utf-8?Q?=C3=A9?=", true, quiet);
    out.setString("old");
    EXPECT_TRUE(((*node).*get)(out, quiet)) << name;
    EXPECT_EQ(out.view(), "\xC3\xA9") << name;
  }
  XString x("old");
  EXPECT_FALSE(node->getHeaderFieldX("X-None", x, quiet) || !x.isEmpty());
  EXPECT_TRUE(node->getHeaderFieldX("subject", x, quiet));
  EXPECT_EQ(x.view(), "\xC3\xA9");
}

TEST(Headers, attachment_headers_are_set_by_index) {
  const EmailPtr root = buildTree("mixed(plain,pdf:attachment,png:attachment)");
  LogMemory log;
  EXPECT_TRUE(root->setAttachmentHeader(1, "Content-ID", "<x@y>", log));
  EXPECT_EQ(root->getPart(2)->m_contentId.view(), "<x@y>");
  EXPECT_FALSE(root->setAttachmentHeader(2, "Content-ID", "<x@y>", log));
  EXPECT_EQ(log.text(), "error: Failed to find attachment sub-part.\n");
}

TEST(Headers, copying_a_header_replaces_fields_members_and_recipients_only) {
  const EmailPtr source = buildTree("mixed[name=n,file=f.txt,cid=<i@j>]:inline(plain)");
  const EmailPtr target = buildTree("related[body=kept](png,pdf)");
  source->setFromFullUtf8("Ann <ann@example.com>", quiet);
  source->addMultipleRecip(1, "J\xC3\xB6rg <j@example.com>, k@example.com", quiet);
  source->addRecipient(2, nullptr, "l@example.com", quiet);
  source->addRecipient(3, nullptr, "m@example.com", quiet);
  source->setDate("Sat, 21 Nov 2026 08:30:00 +0100", quiet, true);
  target->setFromFullUtf8("old@example.com", quiet);
  for (const int kind : {1, 2, 3}) target->addRecipient(kind, nullptr, "old@example.com", quiet);

  const std::string before = fieldLines(*source);
  target->copyHeader(*source, quiet);
  source->copyHeader(*source, quiet);
  EXPECT_EQ(fieldLines(*source), before) << "copied onto itself";
  EXPECT_EQ(members(*source), members(*target));
  EXPECT_EQ(fieldOf(*target, "To"), fieldOf(*source, "To"));
  StringBuffer all;
  target->getAllRecipientAddresses(all);
  EXPECT_EQ(all.view(), "j@example.com,k@example.com,l@example.com,m@example.com");
  EXPECT_TRUE(target->m_date == source->m_date);
  EXPECT_EQ(printTree(target, TreeDetail::names), "mixed[name=n,file=f.txt]:inline(png,pdf)");
  EXPECT_EQ(target->m_body.view(), "kept");
  EXPECT_EQ(disagreeingFields(*target), "");
}

TEST(Headers, members_and_fields_agree_after_every_setter) {
  void (*const sets[])(Email2&) = {
      [](Email2& n) { n.setContentEncodingRecursive("quoted-printable", quiet); },
      [](Email2& n) { n.setHeaderField("Date", "1 Jan 2000 00:00:00 -0500", quiet); },
      [](Email2& n) { n.setHeaderField("From", "\"B, C\" <b@example.com>", quiet); },
      [](Email2& n) { n.addHeaderField2("From", "J\xC3\xB6rg <b@example.com>", quiet); },
      [](Email2& n) { n.setHeaderField("From", "=?utf-8?Q?J=C3=B6?= <b@example.com>", quiet); },
      [](Email2& n) { n.setFromName("M\xC3\xBCller, J.", quiet); },
      [](Email2& n) { n.removeHeaderField("From"); },
      [](Email2& n) { n.addRecipient(1, "A (b) \"c\"", "a@example.com", quiet); },
      [](Email2& n) { n.addRecipient(2, "\xE3\x81\x82", "a@example.com", quiet); },
      [](Email2& n) { n.addMultipleRecip(2, "x@example.com,", quiet); },
      [](Email2& n) { n.clearRecipients(1), n.removeHeaderField("Cc"); },
      [](Email2& n) { n.setHeaderField("Content-Type", "multipart/mixed; boundary=\"a b\"; x=y", quiet); },
      [](Email2& n) {
        n.setContentTypeUtf8("Text/X", "n\xC3\xA4m\"e", "p/q", "sha-256", 65001, "b=_b", "s", "T/U", quiet);
      },
      [](Email2& n) { n.fixContentTypeUtf8("application/pdf", quiet); },
      [](Email2& n) { n.setContentSubtype(" Text/HTML ", quiet); },
      [](Email2& n) { n.setName("a b;c\\d.txt", quiet); },
      [](Email2& n) { n.setContentId("<x@y>", quiet); },
      [](Email2& n) { n.setContentId(nullptr, quiet); },
      [](Email2& n) { n.generateContentId(quiet); },
      [](Email2& n) { n.setContentEncodingNonRecursive(" 8bit ", quiet); },
      [](Email2& n) { n.setContentEncodingNonRecursive(nullptr, quiet); },
      [](Email2& n) { n.setContentDispositionUtf8("attachment", "\xC3\xA9 a.txt", quiet); },
      [](Email2& n) { n.setContentDisposition1("inline", quiet); },
      [](Email2& n) { n.setFilenameUtf8("other.txt", quiet); },
      [](Email2& n) { n.setFilenameUtf8(nullptr, quiet); },
      [](Email2& n) { n.resetDate(quiet); },
  };
  const EmailPtr used(new Email2);
  for (const auto& set : sets) {
    const EmailPtr fresh(new Email2);
    set(*fresh);
    EXPECT_EQ(disagreeingFields(*fresh), "") << &set - sets << " on a new message";
    set(*used);
    EXPECT_EQ(disagreeingFields(*used), "") << &set - sets << " after all before it";
  }
}

TEST(Headers, setters_take_texts_that_live_in_the_node_they_change) {
  const EmailPtr email(new Email2);
  const _svContentType& type = email->m_contentType;
  email->setContentTypeUtf8("text/html", "a-rather-long-name-to-be-on-the-heap.html", nullptr, nullptr, 0,
                            nullptr, nullptr, nullptr, quiet);
  email->setContentTypeUtf8(type.m_type.getString(), type.m_name.getString(), nullptr, nullptr, 0, nullptr,
                            nullptr, nullptr, quiet);
  email->setContentDispositionUtf8("attachment", type.m_name.getString(), quiet);
  email->setFilenameUtf8(email->m_dispFilename.getString(), quiet);
  EXPECT_EQ(printTree(email, TreeDetail::names),
            "html[name=a-rather-long-name-to-be-on-the-heap.html,"
            "file=a-rather-long-name-to-be-on-the-heap.html]:attachment");
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

TEST(EncodedWord, is_built_of_bytes_and_charset) {
  // Deliberate: an empty charset stays empty with B and becomes utf-8 with Q.
  for (const auto& [bytes, charset, b, q] : rowsOf<4>(R"(
    gr\xFC\xDF     | ISO-8859-1 | =?ISO-8859-1?B?Z3L83w==?= | =?ISO-8859-1?Q?gr=FC=DF?=
    Last, First  | utf-8      | =?utf-8?B?TGFzdCwgRmlyc3Q=?= | =?utf-8?Q?Last=2C_First?=
    \xEF\xBB\xBFx | UTF-8      | =?UTF-8?B?eA==?= | =?UTF-8?Q?x?=
    \xEF\xBB\xBF  | utf-8      | |
    \xEF\xBB\xBF  | iso-8859-1 | =?iso-8859-1?B?77u/?= | =?iso-8859-1?Q?=EF=BB=BF?=
    x            |            | =??B?eA==?= | =?utf-8?Q?x?=)")) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    StringBuffer out("+");
    Email2::bEncodeData(data, static_cast<long>(bytes.size()), charset.c_str(), out);
    out.append(" +");
    Email2::qEncodeData(data, static_cast<long>(bytes.size()), charset.c_str(), out);
    Email2::bEncodeData(data, 1, nullptr, out);
    Email2::qEncodeData(data, 1, nullptr, out);
    Email2::bEncodeData(nullptr, 5, "utf-8", out);
    Email2::qEncodeData(data, -1, "utf-8", out);
    EXPECT_EQ(out.view(), "+" + b + " +" + q) << bytes << " " << charset;
  }
  const std::string many(9'999, '\xE9');
  StringBuffer out;
  Email2::bEncodeData(reinterpret_cast<const unsigned char*>(many.data()), 9'999, "iso-8859-1", out);
  EXPECT_EQ(out.getSize(), std::string_view("=?iso-8859-1?B?").size() + 2 + 9'999 / 3 * 4) << "one word";
}

TEST(EncodedHeader, is_rendered_for_the_charset_of_the_email_with_all_its_fields) {
  for (const auto& [codePage, word] :
       {std::pair(0, "=?utf-8?Q?=C3=BC?="), std::pair(1252, "=?windows-1252?Q?=FC?=")}) {
    const EmailPtr root = bareNode();
    root->use_codepage(codePage);
    change(*root, "set SVX-Kept=1 ; set Subject=\xC3\xBC", "");
    StringBuffer out("+");
    root->getQBEncodedMimeHeader(out, quiet, true);
    EXPECT_EQ(out.view(), "+SVX-Kept: 1\r\nSubject: " + std::string(word));
  }
}

}  // namespace
}  // namespace mailtree
