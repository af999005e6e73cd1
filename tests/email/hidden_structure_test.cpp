// What a message hides must not come to light when it is written: lines that read like a boundary once they are decoded,
// bytes whose order their label leaves open, content that a signature covers, parameters nobody asked for.
#include <gtest/gtest.h>

#include "mailtree/mime/ContentCoding.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// A multipart/mixed of the parts given, each with its own header.
std::string mixed(const std::string& boundary, std::initializer_list<std::string> parts) {
  std::string text = "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\n\n";
  for (const std::string& part : parts) text += "--" + boundary + "\n" + part + "\n";
  return text + "--" + boundary + "--\n";
}

std::string base64(std::string_view bytes) {
  StringBuffer text;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  return text.extractString();
}

/// Writes and loads a message again, which must not change it any more.
EmailPtr writtenAndLoaded(Email2& root) {
  const std::string written = write(root);
  EmailPtr again = load(written);
  EXPECT_EQ(printTree(*again), printTree(root)) << written;
  EXPECT_EQ(write(*again), written);
  return again;
}

TEST(HiddenStructure, a_decoded_line_never_becomes_a_boundary) {
  const std::string end = "\n\nForged: yes\n\nforged part\n", type = "Content-Type: ";
  const std::string qp = "\nContent-Transfer-Encoding: quoted-printable\n\n";
  const std::string parts[] = {
      type + "text/plain" + qp + "x\n=2D-b" + end,
      type + "application/x-a" + qp + "=2D-b" + end,
      type + "text/plain; charset=iso-2022-jp\n\nx\n-\x1b(B-b" + end,
      type + "text/plain; charset=utf-7\n\nx\n+AC0--b" + end,
      type + "multipart/mixed; boundary=c\nContent-Transfer-Encoding: base64\n\n" +
          base64("--c\n\nin\n--b\n\nForged: yes\n--c--\n"),
  };
  for (const std::string& part : parts)
    EXPECT_EQ(writtenAndLoaded(*load(mixed("b", {part})))->getNumParts(), 1) << part;
}

TEST(HiddenStructure, quoted_printable_escapes_what_could_be_a_boundary_but_no_signature_dashes) {
  const std::string header = "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\n";
  EXPECT_EQ(write(*load(crlf(header + "--x\n-- \n---\n--\n"))), crlf(header + "=2D-x\n--=20\n=2D--\n--\n"));
}

TEST(HiddenStructure, line_breaks_in_a_boundary_cannot_end_its_line) {
  LogNull log;
  const EmailPtr root = buildTree("mixed(plain)");
  root->setContentTypeUtf8("multipart/mixed", nullptr, nullptr, nullptr, 0, "a\r\nX: y", nullptr, nullptr,
                           log);
  EXPECT_EQ(load(write(*root))->getNumParts(), 1) << write(*root);
}

TEST(HiddenStructure, text_in_utf16_says_its_byte_order_when_written) {
  const std::pair<const char*, std::string_view> rows[] = {
      {"utf-16", {"\xFE\xFF\x4E\x2D\x65\x87", 6}},
      {"utf-16", {"\x4E\x00\x4E\x00\x4E\x00", 6}},
      {"unicode", {"\xFF\xFE\x2D\x4E\x87\x65", 6}},
      {"ucs-2", {"\x4E\x2D\x65\x87", 4}},
  };
  for (const auto& [label, bytes] : rows) {
    const EmailPtr root = load("Content-Type: text/plain; charset=" + std::string(label) +
                               "\nContent-Transfer-Encoding: base64\n\n" + base64(bytes));
    const std::string text(root->m_body.view());
    EXPECT_EQ(writtenAndLoaded(*root)->m_body.view(), text) << label;
  }
}

TEST(HiddenStructure, split_related_blocks_are_joined_but_not_below_a_signature) {
  const auto loadBytes = [](const std::string& message) {  // the way in that joins them
    LogNull log;
    SystemCerts certs;
    DataBuffer bytes;
    bytes.append(message);
    return EmailPtr(Email2::createFromMimeDb(*new _svEmailCommon, bytes, true, true, certs, log, false));
  };
  const std::string related =
      "Content-Type: multipart/related; boundary=r\n\n--r\nContent-Type: text/html\n\n<p>\n--r--\n";
  const std::string two = mixed("m", {related, related});
  EXPECT_EQ(printTree(*loadBytes(two)), "mixed(related(html,html))");
  const std::string covered = "Content-Type: multipart/signed; boundary=s\n\n--s\n" + two +
                              "\n--s\nContent-Type: application/pkcs7-signature\n\nx\n--s--\n";
  EXPECT_TRUE(contains(write(*loadBytes(covered)), "--s\r\n" + two + "\r\n--s\r\n"));
}

TEST(HiddenStructure, an_unclosed_signed_part_does_not_swallow_the_end_of_what_is_around_it) {
  const std::string header = "Content-Type: multipart/signed; boundary=s\n\n--s\n";
  const std::string once = write(*load(header + header + "\nx\n"));
  EXPECT_EQ(write(*load(once)), once);
}

TEST(HiddenStructure, a_wrapped_attachment_keeps_every_parameter) {
  const std::string fields =
      "Content-Type: text/calendar; method=REQUEST; charset=utf-8\r\n"
      "Content-Disposition: attachment; filename=i.ics; size=9; creation-date=\"x y\"\r\n";
  const EmailPtr root = load(fields + "\r\nBEGIN:VCAL\r\n");
  ASSERT_EQ(root->getNumParts(), 2);
  EXPECT_EQ(write(*root->getPart(1)), fields + "\r\nBEGIN:VCAL\r\n");
  EXPECT_EQ(field(*root, "Content-Disposition"), "(absent)");
}

TEST(HiddenStructure, the_text_file_of_a_macintosh_pair_keeps_its_bytes) {
  const EmailPtr root = load(mixed("m", {mixed("a", {"Content-Type: application/applefile\n\nx",
                                                     "Content-Type: text/plain; charset=koi8-r; name=a.txt\n"
                                                     "Content-Transfer-Encoding: base64\n\n0NLJ18XU"})
                                             .replace(24, 5, "appledouble")}));
  EXPECT_EQ(root->getPart(0)->m_body.view(), "\xD0\xD2\xC9\xD7\xC5\xD4");
  EXPECT_TRUE(contains(write(*root), "0NLJ18XU"));
}

}  // namespace
}  // namespace mailtree
