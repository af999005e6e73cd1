// What a message hides must not come to light when it is written: lines that read like a boundary once they are decoded,
// bytes whose order their label leaves open, content that a signature covers, parameters nobody asked for.
#include <gtest/gtest.h>

#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

std::string mixed(std::string_view boundary, std::initializer_list<std::string> parts) {
  const std::string line = "--" + std::string(boundary);
  std::string text = "Content-Type: multipart/mixed; boundary=\"" + std::string(boundary) + "\"\n\n";
  for (const std::string& part : parts) text += line + "\n" + part + "\n";
  return text + line + "--\n";
}

std::string base64(std::string_view bytes) {
  StringBuffer text;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  text.trim2();
  return text.extractString();
}

/// The way in that joins related blocks.
EmailPtr loadBytes(const std::string& message) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  DataBuffer bytes;
  bytes.append(std::string_view(message));
  SystemCerts certs;
  LogNull log;
  return EmailPtr(Email2::createFromMimeDb(*common, bytes, true, true, certs, log, false));
}

TEST(HiddenStructure, a_decoded_line_never_becomes_a_boundary) {
  const std::string end = "\n\nForged: yes\n\nforged part\n";
  const std::string rows[] = {
      mixed("b", {"Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\nx\n=2D-b" + end}),
      mixed("b",
            {"Content-Type: application/x-a\nContent-Transfer-Encoding: quoted-printable\n\n=2D-b" + end}),
      mixed("b", {"Content-Type: text/plain; charset=iso-2022-jp\n\nx\n-\x1b(B-b" + end}),
      mixed("b", {"Content-Type: text/plain; charset=utf-7\n\nx\n+AC0--b" + end}),
      mixed("b", {"Content-Type: multipart/mixed; boundary=c\nContent-Transfer-Encoding: base64\n\n" +
                  base64("--c\n\nin\n--b\n\nForged: yes\n--c--\n")}),
  };
  for (const std::string& message : rows) {
    const EmailPtr root = load(message);
    const std::string written = write(*root);
    const EmailPtr again = load(written);
    EXPECT_EQ(printTree(*again), printTree(*root)) << message << "\n" << written;
    EXPECT_EQ(again->getNumParts(), 1) << written;
    EXPECT_EQ(write(*again), written) << message;
  }
}

TEST(HiddenStructure, quoted_printable_escapes_what_could_be_a_boundary_but_no_signature_dashes) {
  const EmailPtr root = load(
      crlf("Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\n--x\n-- \n---\n--\n"));
  EXPECT_NE(write(*root).find("\r\n\r\n=2D-x\r\n--=20\r\n=2D--\r\n--\r\n"), std::string::npos)
      << write(*root);
}

TEST(HiddenStructure, line_breaks_in_a_boundary_cannot_end_its_line) {
  LogNull log;
  const EmailPtr root = buildTree("mixed(plain)");
  root->setContentTypeUtf8("multipart/mixed", nullptr, nullptr, nullptr, 0, "a\r\nX: y", nullptr, nullptr,
                           log);
  EXPECT_EQ(load(write(*root))->getNumParts(), 1) << write(*root);
}

TEST(HiddenStructure, text_in_utf16_says_its_byte_order_when_written) {
  const struct {
    const char* label;
    std::string bytes;
  } rows[] = {
      {"utf-16", std::string("\xFE\xFF\x4E\x2D\x65\x87", 6)},
      {"utf-16", std::string("\x4E\x00\x4E\x00\x4E\x00", 6)},
      {"unicode", std::string("\xFF\xFE\x2D\x4E\x87\x65", 6)},
      {"ucs-2", std::string("\x4E\x2D\x65\x87", 4)},
  };
  for (const auto& row : rows) {
    const EmailPtr root = load("Content-Type: text/plain; charset=" + std::string(row.label) +
                               "\nContent-Transfer-Encoding: base64\n\n" + base64(row.bytes) + "\n");
    const std::string text(root->m_body.view());
    const std::string written = write(*root);
    const EmailPtr again = load(written);
    EXPECT_EQ(again->m_body.view(), text) << row.label << "\n" << written;
    EXPECT_EQ(write(*again), written) << row.label;
  }
}

TEST(HiddenStructure, split_related_blocks_are_joined_but_not_below_a_signature) {
  const auto related = [](const char* boundary) {
    return "Content-Type: multipart/related; boundary=" + std::string(boundary) + "\n\n--" + boundary +
           "\nContent-Type: text/html\n\n<p>\n--" + boundary + "--\n";
  };
  const std::string two = mixed("m", {related("r1"), related("r2")});
  const EmailPtr loose = loadBytes(two);
  EXPECT_EQ(printTree(*loose), "mixed(related(html,html))");

  const std::string signedPart = two.substr(0, two.size() - 1);
  const EmailPtr covered = loadBytes("Content-Type: multipart/signed; boundary=s\n\n--s\n" + signedPart +
                                     "\n--s\nContent-Type: application/pkcs7-signature\n\nx\n--s--\n");
  EXPECT_NE(write(*covered).find("--s\r\n" + signedPart + "\r\n--s\r\n"), std::string::npos)
      << write(*covered);
}

TEST(HiddenStructure, an_unclosed_signed_part_does_not_swallow_the_end_of_what_is_around_it) {
  const EmailPtr root = load(
      "Content-Type: multipart/signed; boundary=s\n\n--s\nContent-Type: multipart/signed; "
      "boundary=s\n\n--s\n\nx\n");
  const std::string once = write(*root);
  EXPECT_EQ(write(*load(once)), once);
}

TEST(HiddenStructure, a_wrapped_attachment_keeps_every_parameter) {
  const EmailPtr root = load(
      "Content-Type: text/calendar; method=REQUEST; charset=utf-8\n"
      "Content-Disposition: attachment; filename=i.ics; size=9; creation-date=\"x y\"\n\nBEGIN:VCAL\n");
  ASSERT_EQ(root->getNumParts(), 2);
  const Email2& file = *root->getPart(1);
  EXPECT_EQ(field(file, "Content-Type"), "text/calendar; method=REQUEST; charset=utf-8");
  EXPECT_EQ(field(file, "Content-Disposition"), "attachment; filename=i.ics; size=9; creation-date=\"x y\"");
  EXPECT_EQ(field(*root, "Content-Disposition"), "(absent)");
}

TEST(HiddenStructure, the_text_file_of_a_macintosh_pair_keeps_its_bytes) {
  const EmailPtr root = load(
      "Content-Type: multipart/mixed; boundary=m\n\n--m\nContent-Type: multipart/appledouble; boundary=a\n\n"
      "--a\nContent-Type: application/applefile\n\nx\n"
      "--a\nContent-Type: text/plain; charset=koi8-r; name=a.txt\nContent-Transfer-Encoding: "
      "base64\n\n0NLJ18XU\n--a--\n--m--\n");
  EXPECT_EQ(root->getPart(0)->m_body.view(), "\xD0\xD2\xC9\xD7\xC5\xD4");
  EXPECT_NE(write(*root).find("0NLJ18XU"), std::string::npos);
}

}  // namespace
}  // namespace mailtree
