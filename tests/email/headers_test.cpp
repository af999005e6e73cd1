// Header fields, and what of a part is parsed from them.
#include <vector>

#include "tests/email/cases.h"

namespace mailtree {
namespace {

using namespace std::string_literals;

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
  // Deliberate: a bare name is all that From then holds, an add takes none, and adding repeats plain fields.
  for (const auto& [steps, fields, parsed] : rowsOf<3>(R"(
    do X-Any=a\r\nBcc: b\rc\nd | X-Any: aBcc: bcd\n | || do sUBJECT=Grüße | sUBJECT: Grüße\n |
    do X-Empty= | X-Empty: \n |                       || do =no name |  |
    do cONTENT-iD=<ä@b> | Content-ID: <ä@b>\n | <ä@b>
    do content-transfer-encoding=base64\x20 | Content-Transfer-Encoding: base64 \n | base64
    do content-type=Text/HTML; charset=utf-8 | content-type: Text/HTML; charset=utf-8\n | text/html
    do reply-to=Ann <a@e> | Reply-To: Ann <a@e>\n |   || do reply-to=nobody |  |
    do To=a@e | To: a@e\n |            || do fROM=Ann <a@e> | From: Ann <a@e>\nSVX-Bounce-Address: a@e\n | a@e
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

TEST(Headers, dates_and_senders_that_cannot_be_read_leave_what_is_on_record) {
  const EmailPtr node = bareNode();
  change(*node, "set date=Sat, 21 Nov 2026 08:30:00 +0100 ; set From=Ann <a@e> ; set From=Bob B", "");
  const SorvikSysTime read = node->m_date;
  EXPECT_EQ(read.m_hour, 7);
  EXPECT_EQ(fieldOf(*node, "Date"), "Sat, 21 Nov 2026 08:30:00 +0100") << "as written";
  change(*node, "add DATE=when it suits me ; add From=Carl ; add From=Bob <@>", "");
  EXPECT_EQ(fieldOf(*node, "Date"), "when it suits me");
  EXPECT_TRUE(node->m_date == read);
  EXPECT_EQ(node->m_fromAddr.m_name.view(), "Bob B");
}

TEST(Headers, content_type_gives_the_email_its_charset_only_while_it_has_none) {
  const EmailPtr node = bareNode();
  for (const char* name : {"koi8-r", "utf-8"})
    change(*node, std::string("set Content-Type=text/plain; charset=") + name, "");
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

TEST(Headers, removal_takes_every_field_and_its_member_but_deliberately_no_bcc_or_date) {
  LogNull log;
  log.m_options.setString("UseBccHeader");
  std::size_t i = 0;  // of its member
  for (const char* name : {"to", "CC", "BCC", "from", "content-id", "CONTENT-TYPE", "content-disposition",
                           "content-transfer-encoding", "date"}) {
    const EmailPtr email(new Email2);
    for (int kind = 1; kind <= 3; ++kind) email->addRecipient(kind, nullptr, "a@example.com", log);
    email->setFromFullUtf8("d@example.com", quiet);
    email->setContentId("<e@f>", quiet);
    email->setContentDispositionUtf8("attachment", "g.txt", quiet);
    email->m_header.addMimeField(name, "twice", false, quiet);
    std::vector<std::string> left = members(*email);
    if (i < 8 && i != 2) left[i] = "";
    if (i++ == 6) left[8] = "";
    const int before = email->getNumHeaderFields();
    const SorvikSysTime date = email->m_date;
    email->removeHeaderField(name);
    EXPECT_EQ(email->getNumHeaderFields(), before - 2) << name;
    EXPECT_EQ(members(*email), left) << name;
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
      [](Email2& n) { n.addHeaderField2("From", "J\xC3\xB6rg <b@example.com>", quiet); },
      [](Email2& n) { n.setHeaderField("From", "=?utf-8?Q?J=C3=B6?= <b@example.com>", quiet); },
      [](Email2& n) { n.setFromName("M\xC3\xBCller, J.", quiet); },
      [](Email2& n) { n.addRecipient(1, "A (b) \"c\"", "a@example.com", quiet); },
      [](Email2& n) { n.clearRecipients(1), n.removeHeaderField("Cc"); },
      [](Email2& n) { n.setHeaderField("Content-Type", "multipart/mixed; boundary=\"a b\"; x=y", quiet); },
      [](Email2& n) {
        n.setContentTypeUtf8("Text/X", "n\xC3\xA4m\"e", "p/q", "sha-256", 65001, "b=_b", "s", "T/U", quiet);
      },
      [](Email2& n) { n.setName("a b;c\\d.txt", quiet); },
      [](Email2& n) { n.generateContentId(quiet); },
      [](Email2& n) { n.setContentDispositionUtf8("attachment", "\xC3\xA9 a.txt", quiet); },
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
  const std::string name = "A Rather Long Name On The Heap";
  const EmailPtr email(new Email2);
  const _svContentType& type = email->m_contentType;
  email->fixContentTypeUtf8("text/html", quiet);
  email->setName(StringBuffer(name), quiet);
  email->setContentTypeUtf8(type.m_type.getString(), type.m_name.getString(), nullptr, nullptr, 0, nullptr,
                            nullptr, nullptr, quiet);
  email->setContentDispositionUtf8("attachment", type.m_name.getString(), quiet);
  email->setFilenameUtf8(email->m_dispFilename.getString(), quiet);
  EXPECT_EQ(printTree(email, TreeDetail::names), "html[name=" + name + ",file=" + name + "]:attachment");
  email->setFromFullUtf8((name + " <a@example.com>").c_str(), quiet);
  email->setFromName(email->m_fromAddr.m_name.getUtf8(), quiet);
  EXPECT_EQ(email->m_fromAddr.m_name.view(), name);
  email->setFromName(email->m_fromAddr.m_name.getUtf8() + 2, quiet);
  EXPECT_EQ(email->m_fromAddr.m_name.view(), name.substr(2));
  email->setContentEncodingRecursive("quoted-printable-and-so-on", quiet);
  email->setContentEncodingRecursive(email->m_transferEncoding.getString(), quiet);
  EXPECT_EQ(fieldOf(*email, "Content-Transfer-Encoding"), "quoted-printable-and-so-on");
  EXPECT_EQ(disagreeingFields(*email), "");
}

TEST(EncodedWord, is_built_of_bytes_and_charset) {
  // Deliberate: an empty charset stays empty with B and becomes utf-8 with Q.
  for (const auto& [bytes, charset, b, q] : rowsOf<4>(R"(
    gr\xFC\xDF | ISO-8859-1 | =?ISO-8859-1?B?Z3L83w==?= | =?ISO-8859-1?Q?gr=FC=DF?=
    Last, First | utf-8 | =?utf-8?B?TGFzdCwgRmlyc3Q=?= | =?utf-8?Q?Last=2C_First?=
    \xEF\xBB\xBFx | UTF-8 | =?UTF-8?B?eA==?= | =?UTF-8?Q?x?= || \xEF\xBB\xBF | utf-8 |  |
    \xEF\xBB\xBF | iso-8859-1 | =?iso-8859-1?B?77u/?= | =?iso-8859-1?Q?=EF=BB=BF?=
    x |  | =??B?eA==?= | =?utf-8?Q?x?=)")) {
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
}

TEST(EncodedHeader, is_rendered_for_the_charset_of_the_email_with_all_its_fields) {
  for (const auto& [codePage, word] :
       {std::pair(0, "=?utf-8?Q?=C3=BC?="), std::pair(1252, "=?windows-1252?Q?=FC?=")}) {
    const EmailPtr root = bareNode();
    root->use_codepage(codePage);
    change(*root, "set SVX-Kept=1 ; set Content-ID=<\xC3\xBC> ; set Subject=\xC3\xBC", "");
    StringBuffer out("+");
    root->getQBEncodedMimeHeader(out, quiet, true);
    EXPECT_EQ(out.view(), "+SVX-Kept: 1\r\nContent-ID: <\xC3\xBC>\r\nSubject: " + std::string(word));
  }
}

/// A node as it would be after loading a part with this Content-Type.
EmailPtr receivedNode(const std::string& contentType) {
  EmailPtr node = bareNode();
  node->m_header.loadMimeHeaderText("Content-Type: " + contentType + "\r\n", &node->m_common->m_charset,
                                    &node->m_contentType, quiet);
  return node;
}

void setType(Email2& node, const char* type, int codePage = 0, const char* subtype = nullptr) {
  node.setContentTypeUtf8(type, nullptr, nullptr, nullptr, codePage, nullptr, nullptr, subtype, quiet);
}

TEST(ContentType, is_set_as_a_whole) {
  const EmailPtr node = bareNode();
  node->setContentTypeUtf8(" Application/X ", " a b ", " p ", " m ", 0, " bnd ", " s ", " T/U ", quiet);
  std::string members;
  const _svContentType& type = node->m_contentType;
  for (const StringBuffer* member : {&type.m_type, &type.m_name, &type.m_protocol, &type.m_micalg,
                                     &type.m_boundary, &type.m_smimeType, &type.m_subtype})
    members.append(member->view()).append(";");
  EXPECT_EQ(members, "application/x;a b;p;m;bnd;s;t/u;");
  for (const char* noType : {static_cast<const char*>(nullptr), ""}) {
    setType(*node, noType);
    EXPECT_EQ(fieldOf(*node, "Content-Type"), "application/x") << "the type stays, its parameters go";
  }
  setType(*node, "multipart/related", 0, "text/html");
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "multipart/related") << "no type parameter from here";
  node->m_contentType.clear();
  setType(*node, nullptr);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/plain");
  node->fixContentTypeUtf8(" Image/PNG", quiet);
  EXPECT_EQ(type.m_type.view(), " Image/PNG") << "deliberately as passed";
}

TEST(ContentType, code_page_becomes_the_emails_for_parts_that_carry_text) {
  for (const auto& [type, subtype, codePage] : rowsOf<3>(R"(
    TEXTual          |            | 932 || application/x    | text/plain | 932
    application/x    | a/text     | 0   || multipart/mixed  | text/plain | 0
    multipart/signed |            | 932 || message/rfc822   |            | 932
    image/text       |            | 0)")) {
    const EmailPtr node = bareNode();
    setType(*node, type.c_str(), 932, subtype.c_str());
    EXPECT_EQ(node->emailCodePage(), std::stoi(codePage)) << type;
  }
  const EmailPtr node = bareNode();
  node->use_codepage(65001);
  setType(*node, "text/plain", 0);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/plain; charset=utf-8") << "0 changes nothing";
}

TEST(ContentType, received_text_that_means_the_same_is_left_alone) {
  for (const auto& [received, change, then] : rowsOf<3>(R"(
    TEXT/Plain; Charset="UTF-8"                 |              | same
    text/plain;\r\n\x09charset=us-ascii (why) |              | same
    text/plain; charset=x-nobody-knows          |              | same
    text/plain; format=flowed; delsp=yes        |              | same
    multipart/mixed; charset=utf-8; boundary=x  |              | same
    application/pdf; x=1; NAME=a.pdf            | name=a.pdf   | same
    application/pdf; x=1; NAME=a.pdf            | name=b.pdf   | application/pdf; name=b.pdf; x=1
    TEXT/Plain; Charset=x-nobody-knows          | charset=8    | text/plain; charset=utf-8
    Text/plain;charset="UTF-8"                  | charset=8    | same
    text/plain; charset="utf-8" x               | charset=9    | text/plain; charset=iso-8859-2
    multipart/mixed; boundary=a;b               | boundary=a;b | multipart/mixed; boundary="a;b"
    multipart/mixed; boundary="ab"              | boundary=a   | multipart/mixed; boundary="a"
    Multipart/Related; boundary=x; type="TEXT/html" | subtype=text/HTML\x20 | same
    Text/Plain | charset=8 | text/plain; charset=utf-8 || Text/Plain | type=text/html | text/html
    Text/Plain | type= |)")) {
    const EmailPtr node = receivedNode(received);
    const std::string value = change.substr(change.find('=') + 1);
    if (change.starts_with("name")) node->setName(StringBuffer(value), quiet);
    if (change.starts_with("charset")) node->use_codepage(value == "8" ? 65001 : 28592);
    if (change.starts_with("boundary")) node->m_contentType.m_boundary.setString(value);
    if (change.starts_with("type")) node->fixContentTypeUtf8(value.c_str(), quiet);
    if (change.starts_with("subtype")) node->setContentSubtype(value.c_str(), quiet);
    node->refreshContentTypeHeader(quiet);
    EXPECT_EQ(node->m_header.rawValue(0), then == "same" ? received : then) << received;
    EXPECT_EQ(node->getNumHeaderFields(), 1) << received;
  }
}

TEST(ContentType, attached_text_has_its_own_charset_and_no_flow) {
  const EmailPtr node = receivedNode("text/plain; charset=utf-8; format=flowed");
  node->setContentDisposition1("attachment", quiet);
  for (const auto& [codePage, field] :
       {std::pair(28592, "text/plain; charset=iso-8859-2"), {0, "text/plain"}}) {
    node->m_attachCodePage = codePage;
    node->refreshContentTypeHeader(quiet);
    EXPECT_EQ(fieldOf(*node, "Content-Type"), field);
    EXPECT_FALSE(node->m_contentType.m_formatFlowed);
  }
}

/// Transfer encodings of a tree: member/field of each node, depth-first.
std::string encodings(const Email2& node) {
  std::string out(node.m_transferEncoding.view());
  out += "/" + fieldOf(node, "Content-Transfer-Encoding");
  for (int i = 0; i < node.getNumParts(); ++i) out += " " + encodings(*node.getPartConst(i));
  return out;
}

TEST(TransferEncoding, is_chosen_by_code_page) {
  const EmailPtr node = bareNode();
  for (const int codePage :
       {20126, 20127, 20128, 50219, 50220, 54936, 54937, 931, 932, 950, 951, 65001, 0, -1}) {
    const bool isMultiByte = (codePage >= 50220 && codePage <= 54936) || (codePage >= 932 && codePage <= 950);
    const std::string chosen = codePage == 20127 ? "7bit" : isMultiByte ? "base64" : "quoted-printable";
    node->setEncodingViaCodePage(codePage, 7, quiet);
    EXPECT_EQ(encodings(*node), chosen + "/" + chosen) << codePage;
  }
}

TEST(TransferEncoding, recursion_reaches_text_and_edifact_and_deliberately_notes_it_on_any_top_node) {
  const char* tree = "mixed[enc=a](related[enc=a](Text/HTML[enc=a]),application/EDIFACT[enc=a],pdf[enc=a])";
  const EmailPtr inner = buildTree(tree), noted = buildTree(tree);
  inner->setContentEncodingInner("b", quiet);
  noted->setContentEncodingRecursive("b", quiet);
  EXPECT_EQ(encodings(*inner), "a/a a/a b/b b/b a/a");
  EXPECT_EQ(encodings(*noted), "b/a a/a b/b b/b a/a");
}

TEST(Disposition, is_written_with_the_file_name_that_is_known) {
  const EmailPtr node = bareNode();
  const std::pair<void (*)(Email2&), std::string> steps[] = {
      {[](Email2& n) { n.setContentDisposition1("inline", quiet); }, "inline"},
      {[](Email2& n) { n.setFilenameUtf8("a b.txt", quiet); }, "inline; filename=\"a b.txt\""},
      {[](Email2& n) { n.setContentDisposition1("attachment", quiet); }, "attachment; filename=\"a b.txt\""},
      {[](Email2& n) { n.setContentDispositionUtf8("attachment", nullptr, quiet); }, "attachment"},
      {[](Email2& n) { n.setContentDispositionUtf8("inline", "\r\n", quiet); }, "inline"},
      {[](Email2& n) { n.setContentDispositionUtf8("x; filename=\"a\"", "f", quiet); }, "x; filename=\"f\""},
      {[](Email2& n) { n.setContentDispositionUtf8("x; y=\"; filename=\"b", "f", quiet); },
       "x; filename=\"f\""},
      {[](Email2& n) { n.setContentDispositionUtf8("at\xC3\xA9", "f", quiet); }, "at; filename=f"},
  };
  for (const auto& [set, value] : steps) {
    set(*node);
    EXPECT_EQ(writtenHeader(*node), "Content-Disposition: " + value);
    EXPECT_EQ(node->m_dispFilename.isEmpty(), !contains(value, "filename")) << value;
  }
}

TEST(Disposition, file_name_comes_back_from_what_is_written_and_deliberately_loses_line_breaks) {
  for (const std::string name :
       {"a.txt", "a \"b\".txt", "a\\b.txt", "M\xC3\xBCller; x=y.txt", "a\"; filename=\"b.exe",
        "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt", "a\r\nX: 1\r\n\r\nbody.txt"}) {
    const EmailPtr node = bareNode(), again = bareNode();
    node->setContentDispositionUtf8("attachment", name.c_str(), quiet);
    EXPECT_EQ(node->m_dispFilename.view(), contains(name, "X: 1") ? "aX: 1body.txt" : name);
    again->m_header.loadMimeHeaderText(writtenHeader(*node) + "\r\n", quiet);
    again->m_disposition.setString("attachment");
    again->m_dispFilename.setString(node->m_dispFilename);
    EXPECT_EQ(disagreeingFields(*again), "") << writtenHeader(*node);
    EXPECT_TRUE(again->getNumHeaderFields() == 1 && !contains(writtenHeader(*node), "\r\n\r\n")) << name;
  }
}

TEST(Filename, comes_from_the_first_place_that_has_one) {
  for (const auto& [disposition, name, location, type, filename] : rowsOf<5>(R"(
    d.txt | n.txt | l.txt | text/plain | d.txt                 ||  | n.txt | l.txt | text/plain | n.txt
     |  | http://example.com/l.txt | text/plain | http://example.com/l.txt
     |  | no-dot | image/JPEG | attachedFile.jpg               ||  |  |  | x-nobody/knows | attachedFile.dat
    =?utf-8?b?w6kudHh0?= |  |  | text/plain | \xC3\xA9.txt
     | =?iso-8859-1?q?=E9?=.txt |  | text/plain | \xC3\xA9.txt || why?no?.txt |  |  | text/plain | why?no?.txt
    \x1B$B$"\x1B(B.txt |  |  | text/plain | \xE3\x81\x82.txt)")) {
    const EmailPtr node = bareNode();
    node->m_dispFilename.setString(disposition);
    node->m_contentType.m_name.setString(name);
    node->m_contentType.m_type.setString(type);
    node->setHeaderField("Content-Location", location.c_str(), quiet);
    StringBuffer out("old");
    node->getFilenameUtf8(out, quiet);
    EXPECT_EQ(out.view(), filename);
  }
}

TEST(ContentAttributes, some_getters_replace_and_some_append) {
  const EmailPtr node = buildTree("pdf[name=n,cid=<i>,enc=base64]");
  StringBuffer appended, type("old"), encoding("old"), name("old");
  node->getContentId(appended);
  node->getAttachmentName(appended);
  node->getContentType(type);
  node->getContentEncoding(encoding);
  node->getName(name);
  EXPECT_EQ(
      appended.extractString() + " " + type.getString() + " " + encoding.getString() + " " + name.getString(),
      "<i>n application/pdf base64 n");
}

}  // namespace
}  // namespace mailtree
