#include <gtest/gtest.h>

#include <string>

#include "mailtree/email/Email2.h"
#include "tests/support/fields.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

/// A node as it would be after loading a part with this Content-Type.
EmailPtr receivedNode(const char* contentType) {
  EmailPtr node = bareNode();
  const std::string header = std::string("Content-Type: ") + contentType + "\r\n";
  node->m_header.loadMimeHeaderText(header, &node->m_common->m_charset, &node->m_contentType, quiet);
  return node;
}

void setType(Email2& node, const char* type, int codePage = 0, const char* subtype = nullptr) {
  node.setContentTypeUtf8(type, nullptr, nullptr, nullptr, codePage, nullptr, nullptr, subtype, quiet);
}

TEST(ContentType, is_set_as_a_whole) {
  const EmailPtr node = bareNode();
  node->setContentTypeUtf8(" Application/X ", " a b ", " p ", " m ", 0, " bnd ", " s ", " T/U ", quiet);
  const _svContentType& type = node->m_contentType;
  EXPECT_EQ(type.m_type.view(), "application/x");
  EXPECT_EQ(type.m_name.view(), "a b");
  EXPECT_EQ(type.m_protocol.view(), "p");
  EXPECT_EQ(type.m_micalg.view(), "m");
  EXPECT_EQ(type.m_boundary.view(), "bnd");
  EXPECT_EQ(type.m_smimeType.view(), "s");
  EXPECT_EQ(type.m_subtype.view(), "t/u");

  for (const char* noType : {static_cast<const char*>(nullptr), ""}) {
    setType(*node, noType);
    EXPECT_EQ(fieldOf(*node, "Content-Type"), "application/x") << "the type stays, its parameters go";
  }
  node->m_contentType.clear();
  setType(*node, nullptr);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/plain");
  setType(*node, "multipart/related", 0, "text/html");
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "multipart/related") << "no type parameter from here";
}

TEST(ContentType, code_page_becomes_the_emails_for_parts_that_carry_text) {
  const struct {
    const char* type;
    const char* subtype;
    bool taken;
  } rows[] = {
      {"text/plain", nullptr, true},       {"TEXT/html", nullptr, true},
      {"textual", nullptr, true},          {"application/x", "text/plain", true},
      {"application/x", "a/text", false},  {"multipart/signed", nullptr, true},
      {"multipart/mixed", nullptr, false}, {"multipart/mixed", "text/plain", false},
      {"message/rfc822", nullptr, true},   {"application/pdf", nullptr, false},
      {"image/text", nullptr, false},
  };
  for (const auto& row : rows) {
    const EmailPtr node = bareNode();
    setType(*node, row.type, 932, row.subtype);
    EXPECT_EQ(node->emailCodePage(), row.taken ? 932 : 0) << row.type;
  }
  const EmailPtr node = bareNode();
  node->use_codepage(65001);
  setType(*node, "text/plain", 0);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/plain; charset=utf-8") << "0 changes nothing";
}

TEST(ContentType, received_text_that_means_the_same_is_left_alone) {
  const struct {
    const char* received;
    void (*change)(Email2&);
    const char* then;  // null: as received
  } rows[] = {
      {"TEXT/Plain; Charset=\"UTF-8\"", [](Email2&) {}, nullptr},
      {"text/plain;\r\n\tcharset=us-ascii (why not)", [](Email2&) {}, nullptr},
      {"text/plain; charset=x-nobody-knows", [](Email2&) {}, nullptr},
      {"text/plain; format=flowed; delsp=yes", [](Email2&) {}, nullptr},
      {"multipart/mixed; charset=utf-8; boundary=x", [](Email2&) {}, nullptr},
      {"application/pdf; x=1; NAME=a.pdf", [](Email2& n) { n.setName("a.pdf", quiet); }, nullptr},
      {"application/pdf; x=1; NAME=a.pdf", [](Email2& n) { n.setName("b.pdf", quiet); },
       "application/pdf; name=b.pdf; x=1"},
      {"TEXT/Plain; Charset=\"UTF-8\"", [](Email2& n) { n.use_codepage(28591); },
       "text/plain; charset=iso-8859-1"},
      {"TEXT/Plain; Charset=x-nobody-knows", [](Email2& n) { n.use_codepage(65001); },
       "text/plain; charset=utf-8"},
      {"Text/Plain", [](Email2& n) { n.use_codepage(65001); }, "text/plain; charset=utf-8"},
      {"Text/Plain", [](Email2& n) { n.fixContentTypeUtf8("text/html", quiet); }, "text/html"},
      {"Multipart/Related; boundary=x; type=\"TEXT/html\"",
       [](Email2& n) { n.setContentSubtype("text/HTML ", quiet); }, nullptr},
      {"Text/Plain", [](Email2& n) { n.fixContentTypeUtf8("", quiet); }, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.received);
    const EmailPtr node = receivedNode(row.received);
    row.change(*node);
    node->refreshContentTypeHeader(quiet);
    EXPECT_EQ(node->m_header.rawValue(0), row.then ? row.then : row.received);
    EXPECT_EQ(node->getNumHeaderFields(), 1);
  }
}

TEST(ContentType, attached_text_has_its_own_charset_and_no_flow) {
  const EmailPtr node = receivedNode("text/plain; charset=utf-8; format=flowed");
  node->setContentDisposition1("attachment", quiet);
  node->m_attachCodePage = 28592;
  node->refreshContentTypeHeader(quiet);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/plain; charset=iso-8859-2");
  EXPECT_FALSE(node->m_contentType.m_formatFlowed);
  node->m_attachCodePage = 0;
  node->refreshContentTypeHeader(quiet);
  EXPECT_EQ(fieldOf(*node, "Content-Type"), "text/plain");
}

TEST(ContentType, deliberate_fixed_type_is_taken_as_passed) {
  const EmailPtr node = bareNode();
  node->fixContentTypeUtf8(" Image/PNG", quiet);
  EXPECT_EQ(node->m_contentType.m_type.view(), " Image/PNG");
}

// Transfer encoding

TEST(TransferEncoding, is_chosen_by_code_page) {
  const struct {
    int codePage;
    const char* encoding;
  } rows[] = {
      {20127, "7bit"},
      {50220, "base64"},
      {54936, "base64"},
      {54937, "quoted-printable"},
      {50219, "quoted-printable"},
      {932, "base64"},
      {936, "base64"},
      {950, "base64"},
      {931, "quoted-printable"},
      {951, "quoted-printable"},
      {1252, "quoted-printable"},
      {65001, "quoted-printable"},
      {0, "quoted-printable"},
      {-1, "quoted-printable"},
  };
  const EmailPtr node = bareNode();
  for (const auto& row : rows) {
    node->setEncodingViaCodePage(row.codePage, 7, quiet);
    EXPECT_EQ(node->m_transferEncoding.view(), row.encoding) << row.codePage;
    EXPECT_EQ(fieldOf(*node, "Content-Transfer-Encoding"), row.encoding) << row.codePage;
  }
}

/// Transfer encodings of a tree: member/field of each node, depth-first.
std::string encodings(const Email2& node) {
  std::string out(node.m_transferEncoding.view());
  out += "/" + fieldOf(node, "Content-Transfer-Encoding");
  for (int i = 0; i < node.getNumParts(); ++i) out += " " + encodings(*node.getPartConst(i));
  return out;
}

TEST(TransferEncoding, recursion_reaches_text_and_edifact_wherever_they_are) {
  const EmailPtr root = buildTree(
      "mixed[enc=a](related[enc=a](Text/HTML[enc=a],png[enc=a]),"
      "application/EDIFACT[enc=a],pdf[enc=a])");
  root->setContentEncodingInner("b", quiet);
  EXPECT_EQ(encodings(*root), "a/a a/a b/b a/a b/b a/a");
}

TEST(TransferEncoding, deliberate_recursion_notes_the_encoding_on_any_top_node) {
  const EmailPtr root = buildTree("mixed[enc=a](plain[enc=a],mixed[enc=a](png[enc=a]))");
  root->setContentEncodingRecursive("b", quiet);
  EXPECT_EQ(encodings(*root), "b/a b/b a/a a/a");
}

// Disposition and file names

TEST(Disposition, is_written_with_the_file_name_that_is_known) {
  const EmailPtr node = bareNode();
  const auto value = [&] { return fieldOf(*node, "Content-Disposition"); };
  node->setContentDisposition1("inline", quiet);
  EXPECT_EQ(value(), "inline");
  node->setFilenameUtf8("a b.txt", quiet);
  EXPECT_EQ(value(), "inline; filename=\"a b.txt\"");
  node->setContentDisposition1("attachment", quiet);
  EXPECT_EQ(value(), "attachment; filename=\"a b.txt\"");
  node->setContentDispositionUtf8("attachment", nullptr, quiet);
  EXPECT_EQ(value(), "attachment");
  EXPECT_EQ(node->m_dispFilename.view(), "");
  node->setContentDispositionUtf8("attachment", "\r\n", quiet);
  EXPECT_EQ(value(), "attachment");
}

TEST(Disposition, deliberate_line_breaks_of_a_file_name_reach_the_list_but_no_output) {
  const EmailPtr node = bareNode();
  node->setContentDispositionUtf8("attachment", "a\r\nX-Forged: 1\r\n\r\nbody.txt", quiet);
  EXPECT_EQ(node->m_dispFilename.view(), "aX-Forged: 1body.txt");
  const std::string written = writtenHeader(*node);
  MimeHeader parsed;
  parsed.loadMimeHeaderText(written + "\r\n", quiet);
  EXPECT_EQ(parsed.getNumFields(), 1) << written;
  EXPECT_EQ(written.find("\r\n\r\n"), std::string::npos) << written;
}

TEST(Disposition, type_can_neither_forge_a_file_name_nor_hold_what_a_type_may_not) {
  const struct {
    const char* type;
    const char* written;
  } rows[] = {
      {"attach; filename=\"a\"", "Content-Disposition: attach; filename=\"f.txt\""},
      {"attach; x=\"; filename=\"b.exe", "Content-Disposition: attach; filename=\"f.txt\""},
      {"att\xC3\xA9", "Content-Disposition: att; filename=f.txt"},
  };
  for (const auto& row : rows) {
    const EmailPtr node = bareNode();
    node->setContentDispositionUtf8(row.type, "f.txt", quiet);
    EXPECT_EQ(writtenHeader(*node), row.written) << row.type;
  }
}

TEST(ContentId, beyond_ascii_comes_back_from_what_is_written) {
  const EmailPtr node = bareNode();
  node->setContentId("<caf\xC3\xA9@x>", quiet);
  const EmailPtr again = bareNode();
  again->m_header.loadMimeHeaderText(writtenHeader(*node), quiet);
  EXPECT_EQ(fieldOf(*again, "Content-ID"), "<caf\xC3\xA9@x>");
  EXPECT_EQ(writtenHeader(*node), "Content-ID: <caf\xC3\xA9@x>");
}

TEST(Disposition, file_name_with_quotes_comes_back_from_what_is_written) {
  for (const char* name : {"a.txt", "a \"b\".txt", "a\\b.txt", "M\xC3\xBCller; x=y.txt",
                           "a\"; filename=\"b.exe", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt"}) {
    const EmailPtr node = bareNode();
    node->setContentDispositionUtf8("attachment", name, quiet);
    MimeHeader written;
    written.loadMimeHeaderText(writtenHeader(*node) + "\r\n", quiet);
    ASSERT_EQ(written.getNumFields(), 1) << name;
    std::string scratch;
    const ParameterizedValue parsed = parseParameterizedValue(written.unfoldedValue(0, scratch));
    EXPECT_EQ(parsed.value, "attachment") << name;
    ASSERT_TRUE(parsed.params.find("filename")) << name << ": " << written.rawValue(0);
    EXPECT_EQ(*parsed.params.find("filename"), name) << written.rawValue(0);
  }
}

TEST(Filename, comes_from_the_first_place_that_has_one) {
  const struct {
    const char* dispFilename;
    const char* name;
    const char* location;
    const char* type;
    const char* filename;
  } rows[] = {
      {"d.txt", "n.txt", "l.txt", "text/plain", "d.txt"},
      {"", "n.txt", "l.txt", "text/plain", "n.txt"},
      {"", "", "http://example.com/l.txt", "text/plain", "http://example.com/l.txt"},
      {"", "", "no-dot", "image/JPEG", "attachedFile.jpg"},
      {"", "", nullptr, "application/pdf", "attachedFile.pdf"},
      {"", "", nullptr, "x-nobody/knows", "attachedFile.dat"},
      {"", "", nullptr, "", "attachedFile.dat"},
      {"=?utf-8?b?w6kudHh0?=", "", nullptr, "text/plain", "\xC3\xA9.txt"},
      {"", "=?iso-8859-1?q?=E9?=.txt", nullptr, "text/plain", "\xC3\xA9.txt"},
      {"why?no?.txt", "", nullptr, "text/plain", "why?no?.txt"},
      {"\x1B$B$\"\x1B(B.txt", "", nullptr, "text/plain", "\xE3\x81\x82.txt"},
  };
  for (const auto& row : rows) {
    const EmailPtr node = bareNode();
    node->m_dispFilename.setString(row.dispFilename);
    node->m_contentType.m_name.setString(row.name);
    node->m_contentType.m_type.setString(row.type);
    if (row.location) node->setHeaderField("Content-Location", row.location, quiet);
    StringBuffer out("old");
    node->getFilenameUtf8(out, quiet);
    EXPECT_EQ(out.view(), row.filename);
  }
}

TEST(ContentAttributes, some_getters_replace_and_some_append) {
  const EmailPtr node = buildTree("pdf[name=n,cid=<i>,enc=base64]");
  const struct {
    const char* name;
    void (*get)(Email2&, StringBuffer&);
    const char* out;
  } rows[] = {
      {"getContentType", [](Email2& n, StringBuffer& out) { n.getContentType(out); }, "application/pdf"},
      {"getContentEncoding", [](Email2& n, StringBuffer& out) { n.getContentEncoding(out); }, "base64"},
      {"getName", [](Email2& n, StringBuffer& out) { n.getName(out); }, "n"},
      {"getContentId", [](Email2& n, StringBuffer& out) { n.getContentId(out); }, "+<i>"},
      {"getAttachmentName", [](Email2& n, StringBuffer& out) { n.getAttachmentName(out); }, "+n"},
  };
  for (const auto& row : rows) {
    StringBuffer out("+");
    row.get(*node, out);
    EXPECT_EQ(out.view(), row.out) << row.name;
  }
}

}  // namespace
}  // namespace mailtree
