#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "tests/email/cases.h"
#include "tests/support/fields.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

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
    TEXTual         |            | 932
    application/x   | text/plain | 932
    application/x   | a/text     | 0
    multipart/mixed | text/plain | 0
    multipart/signed |           | 932
    message/rfc822  |            | 932
    image/text      |            | 0)")) {
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
  const std::tuple<std::string, void (*)(Email2&), const char*> rows[] = {
      {"TEXT/Plain; Charset=\"UTF-8\"", [](Email2&) {}, nullptr},
      {"text/plain;\r\n\tcharset=us-ascii (why not)", [](Email2&) {}, nullptr},
      {"text/plain; charset=x-nobody-knows", [](Email2&) {}, nullptr},
      {"text/plain; format=flowed; delsp=yes", [](Email2&) {}, nullptr},
      {"multipart/mixed; charset=utf-8; boundary=x", [](Email2&) {}, nullptr},
      {"application/pdf; x=1; NAME=a.pdf", [](Email2& n) { n.setName("a.pdf", quiet); }, nullptr},
      {"application/pdf; x=1; NAME=a.pdf", [](Email2& n) { n.setName("b.pdf", quiet); },
       "application/pdf; name=b.pdf; x=1"},
      {"TEXT/Plain; Charset=x-nobody-knows", [](Email2& n) { n.use_codepage(65001); },
       "text/plain; charset=utf-8"},
      {"Text/Plain", [](Email2& n) { n.use_codepage(65001); }, "text/plain; charset=utf-8"},
      {"Text/Plain", [](Email2& n) { n.fixContentTypeUtf8("text/html", quiet); }, "text/html"},
      {"Multipart/Related; boundary=x; type=\"TEXT/html\"",
       [](Email2& n) { n.setContentSubtype("text/HTML ", quiet); }, nullptr},
      {"Text/Plain", [](Email2& n) { n.fixContentTypeUtf8("", quiet); }, ""},
  };
  for (const auto& [received, change, then] : rows) {
    const EmailPtr node = receivedNode(received);
    change(*node);
    node->refreshContentTypeHeader(quiet);
    EXPECT_EQ(node->m_header.rawValue(0), then ? then : received) << received;
    EXPECT_EQ(node->getNumHeaderFields(), 1) << received;
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

// Transfer encoding

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

// Disposition and file names

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

TEST(Disposition, deliberate_line_breaks_of_a_file_name_reach_the_list_but_no_output) {
  const EmailPtr node = bareNode();
  node->setContentDispositionUtf8("attachment", "a\r\nX-Forged: 1\r\n\r\nbody.txt", quiet);
  EXPECT_EQ(node->m_dispFilename.view(), "aX-Forged: 1body.txt");
  MimeHeader parsed;
  parsed.loadMimeHeaderText(writtenHeader(*node) + "\r\n", quiet);
  EXPECT_EQ(parsed.getNumFields(), 1) << writtenHeader(*node);
  EXPECT_EQ(writtenHeader(*node).find("\r\n\r\n"), std::string::npos);
}

TEST(ContentId, beyond_ascii_comes_back_from_what_is_written) {
  const EmailPtr node = bareNode(), again = bareNode();
  node->setContentId("<caf\xC3\xA9@x>", quiet);
  EXPECT_EQ(writtenHeader(*node), "Content-ID: <caf\xC3\xA9@x>");
  again->m_header.loadMimeHeaderText(writtenHeader(*node), quiet);
  EXPECT_EQ(fieldOf(*again, "Content-ID"), "<caf\xC3\xA9@x>");
}

TEST(Disposition, file_name_with_quotes_comes_back_from_what_is_written) {
  for (const char* name : {"a.txt", "a \"b\".txt", "a\\b.txt", "M\xC3\xBCller; x=y.txt",
                           "a\"; filename=\"b.exe", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt"}) {
    const EmailPtr node = bareNode(), again = bareNode();
    node->setContentDispositionUtf8("attachment", name, quiet);
    again->m_header.loadMimeHeaderText(writtenHeader(*node) + "\r\n", quiet);
    again->m_disposition.setString("attachment");
    again->m_dispFilename.setString(name);
    EXPECT_EQ(disagreeingFields(*again), "") << writtenHeader(*node);
    EXPECT_EQ(again->getNumHeaderFields(), 1) << name;
  }
}

TEST(Filename, comes_from_the_first_place_that_has_one) {
  for (const auto& [disposition, name, location, type, filename] : rowsOf<5>(R"(
    d.txt                 | n.txt | l.txt                    | text/plain      | d.txt
                          | n.txt | l.txt                    | text/plain      | n.txt
                          |       | http://example.com/l.txt | text/plain      | http://example.com/l.txt
                          |       | no-dot                   | image/JPEG      | attachedFile.jpg
                          |       |                          | x-nobody/knows  | attachedFile.dat
    =?utf-8?b?w6kudHh0?=  |       |                          | text/plain      | \xC3\xA9.txt
                          | =?iso-8859-1?q?=E9?=.txt |       | text/plain      | \xC3\xA9.txt
    why?no?.txt           |       |                          | text/plain      | why?no?.txt
    \x1B$B$"\x1B(B.txt    |       |                          | text/plain      | \xE3\x81\x82.txt)")) {
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
  StringBuffer out;
  node->getContentId(out);
  node->getAttachmentName(out);
  EXPECT_EQ(out.view(), "<i>n");
  node->getContentType(out);
  EXPECT_EQ(out.view(), "application/pdf");
  node->getContentEncoding(out);
  EXPECT_EQ(out.view(), "base64");
  node->getName(out);
  EXPECT_EQ(out.view(), "n");
}

}  // namespace
}  // namespace mailtree
