#include <gtest/gtest.h>

#include "mailtree/email/internal.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

/// A signed part with everything in it that a writer would put differently.
const std::string kSignedPart =
    "content-type: Multipart/Mixed;\n   BOUNDARY=\"in  ner\"\nX-Odd:no blank,\n\tfolded oddly \n"
    "X-8bit: gr\xFC\xDF\nMIME-Version: 1.0 (odd)\n\n"
    "A preamble that counts.\n--in  ner\nContent-Type: text/plain; charset=iso-8859-1\n"
    "Content-Transfer-Encoding: 8bit\n\n.gr\xFC\xDF \n--in  ner   \nContent-Type: text/html\n"
    "Content-Transfer-Encoding: quoted-printable\n\n<p>=41 long=\n er\n--in  ner--\nAn epilogue too.\n";

std::string signedMessage(const std::string& part) {
  return "From: a@x.org\nContent-Type: multipart/signed; boundary=outer\n\nThis is signed.\n--outer\n" +
         part +
         "\n--outer\nContent-Type: application/pkcs7-signature; name=smime.p7s\n"
         "Content-Transfer-Encoding: base64\n\nMIAG CSq=\n--outer--\n";
}

/// What is between the first boundary line and the line break before the second.
std::string firstPartOf(const std::string& written) {
  const std::size_t first = written.find("--outer\r\n") + 9;
  return written.substr(first, written.find("\r\n--outer\r\n", first) - first);
}

TEST(SignedContent, is_written_byte_for_byte_as_it_was_received) {
  for (const std::string& part : {kSignedPart, crlf(kSignedPart)}) {
    const EmailPtr root = load(signedMessage(part));
    ASSERT_EQ(printTree(root), "signed(mixed(plain,html),p7s)");
    for (const WriteForm& options :
         {WriteForm{}, {.omitPrefix = "X-", .qpFor8bit = true}, {.isTop = false}}) {
      EXPECT_EQ(firstPartOf(write(*root, options)), part);
      EXPECT_EQ(firstPartOf(writeToSink(*root, options)), part);
    }
    root->use_codepage(20866);
    EXPECT_EQ(firstPartOf(write(*root)), part) << "the charset of the email is not below it";
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

TEST(SignedContent, is_written_anew_once_anything_below_it_changed_and_itself_again_when_that_is_undone) {
  void (*const changes[])(Email2&) = {
      [](Email2& part) { part.getPart(1)->m_body.replaceChar('A', 'B'); },
      [](Email2& part) { part.getPart(1)->setHeaderField("X-New", "1", quiet); },
      [](Email2& part) { part.m_header.replaceMimeFieldUtf8("x-odd", "no blank, folded oddly", quiet); },
      [](Email2& part) { part.setContentEncodingRecursive("base64", quiet); },
      [](Email2& part) { part.m_contentType.m_boundary.setString("other"); },
      [](Email2& part) { part.m_contentType.m_otherParams.addParam("x", "y"); },
      [](Email2& part) { part.getPart(0)->m_contentType.m_formatFlowed = true; },
      [](Email2& part) { part.getPart(0)->m_disposition.setString("inline"); },
      [](Email2& part) { part.getPart(0)->m_attachCodePage = 1252; },
      [](Email2& part) { part.insertSubPartAtIndex(part.extractSubpartByIndex(1), 0); },
      [](Email2& part) { part.getPart(0)->insertSubPartAtIndex(part.extractSubpartByIndex(1), 0); },
  };
  for (std::size_t i = 0; i < std::size(changes); ++i) {
    const EmailPtr root = load(signedMessage(kSignedPart));
    changes[i](*root->getPart(0));
    EXPECT_FALSE(contains(write(*root), "preamble that counts")) << "change " << i;
  }
  const EmailPtr root = load(signedMessage(kSignedPart));
  DataBuffer& body = root->getPart(0)->getPart(0)->m_body;
  body.appendChar('!');
  EXPECT_FALSE(unchangedReceivedContent(*root->getPart(0)));
  body.shorten(1);
  EXPECT_EQ(firstPartOf(write(*root)), kSignedPart);
  EXPECT_FALSE(root->m_received || root->getPart(0)->getPart(0)->m_received) << "no bytes are kept elsewhere";
}

TEST(ContentFingerprint, tells_texts_apart_wherever_they_differ) {
  const EmailPtr a(Email2::createNewObject00()), b(Email2::createNewObject00());
  const std::string text(100, 'x');
  a->m_body.append(std::string_view(text));
  for (std::size_t at = 0; at <= text.size(); ++at) {
    std::string other = text;
    if (at < text.size()) other[at] ^= 1;
    b->m_body.clear();
    b->m_body.append(std::string_view(other));
    EXPECT_EQ(contentFingerprint(*a) == contentFingerprint(*b), other == text) << at;
  }
  a->m_disposition.setString("ab");
  b->m_disposition.setString("a");
  b->m_dispFilename.setString("b");
  EXPECT_NE(contentFingerprint(*a), contentFingerprint(*b)) << "texts do not run into each other";
}

}  // namespace
}  // namespace mailtree
