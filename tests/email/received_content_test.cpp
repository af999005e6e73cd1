#include <gtest/gtest.h>

#include <functional>

#include "mailtree/email/internal.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// A signed part with everything in it that a writer would put differently.
const std::string kSignedPart =
    "content-type: Multipart/Mixed;\n   BOUNDARY=\"in  ner\"\nX-Odd:no blank,\n\tfolded oddly \nX-8bit: "
    "gr\xFC\xDF\n"
    "MIME-Version: 1.0 (odd)\n\n"
    "A preamble that counts.\n--in  ner\nContent-Type: text/plain; "
    "charset=iso-8859-1\nContent-Transfer-Encoding: 8bit\n\n"
    ".gr\xFC\xDF \n--in  ner   \nContent-Type: text/html\nContent-Transfer-Encoding: "
    "quoted-printable\n\n<p>=41 long=\n er\n"
    "--in  ner--\nAn epilogue too.\n";

std::string signedMessage(const std::string& part) {
  return "From: a@x.org\nContent-Type: multipart/signed; boundary=outer; "
         "protocol=\"application/pkcs7-signature\"; micalg=sha-256\n"
         "\nThis is a signed message.\n--outer\n" +
         part +
         "\n--outer\nContent-Type: application/pkcs7-signature; name=smime.p7s\n"
         "Content-Transfer-Encoding: base64\n\nMIAG CSq=\n--outer--\n";
}

/// What stands between the first boundary line and the line break before the second.
std::string firstPartOf(const std::string& written) {
  const std::string_view boundary = "--outer\r\n";
  const std::size_t begin = written.find(boundary);
  if (begin == std::string::npos) return "NO BOUNDARY IN " + written;
  const std::size_t first = begin + boundary.size();
  return written.substr(first, written.find("\r\n--outer\r\n", first) - first);
}

TEST(SignedContent, is_written_byte_for_byte_as_it_was_received) {
  for (const bool withCrlf : {false, true}) {
    const auto lines = [&](const std::string& text) { return withCrlf ? crlf(text) : text; };
    const EmailPtr root = load(lines(signedMessage(kSignedPart)));
    ASSERT_EQ(printTree(root), "signed(mixed(plain,html),p7s)");
    const WriteOptions everyOption[] = {{}, {.omitPrefix = "X-", .qpFor8bit = true}, {.isTop = false}};
    for (const WriteOptions& options : everyOption) {
      EXPECT_EQ(firstPartOf(write(*root, options)), lines(kSignedPart)) << withCrlf;
      EXPECT_EQ(firstPartOf(writeToSink(*root, options)), lines(kSignedPart)) << withCrlf;
    }
    const std::string again = write(*load(write(*root)));
    EXPECT_EQ(again, write(*root));
    root->use_codepage(20866);
    EXPECT_EQ(firstPartOf(write(*root)), lines(kSignedPart)) << "the charset of the email is not below it";
  }
}

TEST(SignedContent, is_dot_stuffed_for_transport) {
  const std::string part = "Content-Type: text/plain\n\n.a\n.b\n";
  const EmailPtr root = load(signedMessage(part));
  EXPECT_EQ(firstPartOf(writeToSink(*root, {.dotStuff = true})), "Content-Type: text/plain\n\n..a\n..b\n");
  EXPECT_EQ(firstPartOf(write(*root, {.dotStuff = true})), part) << "a text is no transport";

  const EmailPtr smuggler = load(signedMessage("Content-Type: text/plain\n\na\r.\n"));
  EXPECT_EQ(writeToSink(*smuggler, {.dotStuff = true}), "FAILED") << "nothing in it may change";
  EXPECT_NE(writeToSink(*smuggler), "FAILED");
}

TEST(SignedContent, survives_being_the_only_thing_in_a_deeper_message) {
  const EmailPtr root = load("Content-Type: multipart/mixed; boundary=top\n\n--top\n" +
                             signedMessage(kSignedPart) + "\n--top--\n");
  ASSERT_EQ(printTree(root), "mixed(signed(mixed(plain,html),p7s))");
  EXPECT_EQ(firstPartOf(write(*root)), kSignedPart);
}

TEST(SignedContent, is_written_anew_once_anything_below_it_changed) {
  LogNull log;
  const struct {
    const char* what;
    std::function<void(Email2&)> change;
  } rows[] = {
      {"body", [](Email2& part) { part.getPart(0)->m_body.appendChar('!'); }},
      {"body of the same size", [](Email2& part) { part.getPart(1)->m_body.replaceChar('A', 'B'); }},
      {"field", [&](Email2& part) { part.getPart(1)->setHeaderField("X-New", "1", log); }},
      {"field value", [&](Email2& part) { part.setHeaderField("X-Odd", "even", log); }},
      {"field name",
       [&](Email2& part) { part.m_header.replaceMimeFieldUtf8("x-odd", "no blank, folded oddly", log); }},
      {"field gone", [](Email2& part) { part.removeHeaderField("X-8bit"); }},
      {"encoding", [&](Email2& part) { part.setContentEncodingRecursive("base64", log); }},
      {"type", [&](Email2& part) { part.getPart(1)->fixContentTypeUtf8("text/enriched", log); }},
      {"boundary", [](Email2& part) { part.m_contentType.m_boundary.setString("other"); }},
      {"parameter", [](Email2& part) { part.m_contentType.m_otherParams.addParam("x", "y"); }},
      {"flowed", [](Email2& part) { part.getPart(0)->m_contentType.m_formatFlowed = true; }},
      {"disposition", [&](Email2& part) { part.getPart(0)->setContentDisposition1("inline", log); }},
      {"part removed", [](Email2& part) { const EmailPtr gone(part.extractSubpartByIndex(1)); }},
      {"parts swapped", [](Email2& part) { part.insertSubPartAtIndex(part.extractSubpartByIndex(1), 0); }},
      {"part moved down",
       [](Email2& part) { part.getPart(0)->insertSubPartAtIndex(part.extractSubpartByIndex(1), 0); }},
  };
  for (const auto& row : rows) {
    const EmailPtr root = load(signedMessage(kSignedPart));
    row.change(*root->getPart(0));
    const std::string written = write(*root);
    EXPECT_NE(firstPartOf(written), kSignedPart) << row.what;
    EXPECT_FALSE(contains(written, "preamble that counts")) << row.what;
  }
}

TEST(SignedContent, is_itself_again_when_a_change_is_undone) {
  const EmailPtr root = load(signedMessage(kSignedPart));
  DataBuffer& body = root->getPart(0)->getPart(0)->m_body;
  body.appendChar('!');
  EXPECT_FALSE(unchangedReceivedContent(*root->getPart(0)));
  body.shorten(1);
  EXPECT_EQ(firstPartOf(write(*root)), kSignedPart);
}

TEST(SignedContent, keeps_no_bytes_outside_signed_messages) {
  const EmailPtr root = load(signedMessage(kSignedPart));
  EXPECT_FALSE(root->m_received);
  EXPECT_TRUE(root->getPart(0)->m_received);
  EXPECT_TRUE(root->getPart(1)->m_received);
  EXPECT_FALSE(root->getPart(0)->getPart(0)->m_received);
}

TEST(ContentFingerprint, tells_texts_apart_wherever_they_differ) {
  const EmailPtr a(Email2::createNewObject00()), b(Email2::createNewObject00());
  const std::string text(100, 'x');
  a->m_body.append(std::string_view(text));
  for (std::size_t at = 0; at < text.size(); ++at) {
    std::string other = text;
    other[at] ^= 1;
    b->m_body.clear();
    b->m_body.append(std::string_view(other));
    EXPECT_NE(contentFingerprint(*a), contentFingerprint(*b)) << at;
  }
  b->m_body.clear();
  b->m_body.append(std::string_view(text));
  EXPECT_EQ(contentFingerprint(*a), contentFingerprint(*b));
  a->m_disposition.setString("ab");
  b->m_disposition.setString("a");
  b->m_dispFilename.setString("b");
  EXPECT_NE(contentFingerprint(*a), contentFingerprint(*b)) << "texts do not run into each other";
}

}  // namespace
}  // namespace mailtree
