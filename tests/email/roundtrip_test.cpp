// Laws of loading and writing together, over trees made here, over the samples, and over real mail
// where there is some.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>

#include "tests/support/messages.h"
#include "tests/support/places.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;

LogNull quiet;

template <class... Text>
std::array<std::string_view, sizeof...(Text)> listOf(Text... texts) {
  return {texts...};
}

/// What must be the same after a message was written and loaded again, one line for each part.
std::string describe(const Email2& node, std::size_t depth = 0) {
  // Text without a type gets one when it has to be labelled.
  const std::string_view type =
      node.m_contentType.m_type.isEmpty() ? "text/plain" : node.m_contentType.m_type.view();
  StringBuffer body(node.m_body.view());
  if (type.starts_with("text/")) body.toCRLF();
  // A page may be given a structure and a charset tag when it is written.
  if (type == "text/html" || node.getNumParts()) body.clear();
  std::string line(depth, ' ');
  for (const std::string_view text : {type, node.m_contentType.m_name.view(), node.m_disposition.view(),
                                      node.m_dispFilename.view(), node.m_contentId.view(), body.view()})
    line.append("[").append(text).append("]");
  for (int i = 0; i < node.getNumParts(); ++i) line += "\n" + describe(*node.getPartConst(i), depth + 1);
  return line;
}

std::string headline(const Email2& node) {
  std::string text;
  for (const char* name : {"Subject", "From", "To", "Cc", "Date", "Message-ID"})
    text += field(node, name) + "\n";
  return text;
}

/// Takes back what was doubled; a line that begins with a single dot would end the message.
std::string withoutDotStuffing(const std::string& stuffed) {
  std::string text;
  for (std::size_t at = 0, next = 0; at < stuffed.size(); at = next) {
    next = std::min(stuffed.find('\n', at), stuffed.size() - 1) + 1;
    if (stuffed[at] == '.' && stuffed.compare(at, 2, "..") != 0) return "LINE WITH ONE DOT IN " + stuffed;
    text.append(stuffed, at + (stuffed[at] == '.'), next - at - (stuffed[at] == '.'));
  }
  return text;
}

bool holdsBareCr(const std::string& text) {
  for (std::size_t at = 0; (at = text.find('\r', at)) != std::string::npos; ++at)
    if (text.compare(at, 2, "\r\n") != 0) return true;
  return false;
}

void checkLaws(const std::string& message) {
  const EmailPtr first = load(message);
  const std::string before = describe(*first), headlineBefore = headline(*first);
  const std::string written = write(*first);
  const EmailPtr second = load(written);
  EXPECT_EQ(before, describe(*second)) << "loaded, written, loaded";
  EXPECT_EQ(headlineBefore, headline(*second)) << "header loaded, written, loaded";
  EXPECT_EQ(written, write(*second)) << "written, loaded, written";
  EXPECT_EQ(written, write(*first)) << "written twice";
  if (holdsBareCr(written)) return;  // which is encoded on the way
  EXPECT_EQ(written, withoutDotStuffing(writeToSink(*first, {.dotStuff = true})));
}

/// The laws over every message in a folder. @return how many there are.
int checkLawsIn(const std::string& folder) {
  int count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.path().extension() != ".eml") continue;
    SCOPED_TRACE(entry.path().string());
    DataBuffer message;
    EXPECT_TRUE(message.loadFileUtf8(entry.path().c_str(), quiet));
    checkLaws(std::string(message.view()));
    checkLaws(crlf(message.view()));
    ++count;
  }
  return count;
}

TEST(RoundTrip, holds_for_trees_made_by_hand) {
  const char* const trees[] = {
      "html[enc=quoted-printable]",
      "none[body=words]",
      "mixed(alternative(plain,related(html,png[cid=<a@b>,name=a.png])),pdf[name=a b.pdf]:attachment)",
      "mixed(plain,plain[file=a.txt,body=x  y]:attachment,html[file=a.html]:inline)",
      "mixed(mixed(mixed(plain)),mixed)",
      "digest(rfc822[body=Subject: a],rfc822[body=Subject: b])",
      "report(plain,delivery,rfc822[enc=8bit])",
      "signed(plain,p7s[file=smime.p7s]:attachment)",
      "mixed(plain[body=.],plain[body=--],plain[body=From x],plain[body= ])",
  };
  for (const char* tree : trees) {
    for (const int codePage : {0, kCpUtf8, 1252, 20866, kCpUsAscii}) {
      SCOPED_TRACE(std::string(tree) + " in " + std::to_string(codePage));
      const EmailPtr made = buildTree(tree);
      made->use_codepage(codePage);
      made->setHeaderField("Subject", "na\xC3\xAFve \xD0\xB4\xD0\xB0 =?x?= \"\xE6\x97\xA5\"", quiet);
      made->setHeaderField("X-Long", std::string(700, 'x').c_str(), quiet);
      made->addRecipient(1, "D\xC3\xBCrer, Albrecht", "ad@x.org", quiet);
      const std::string written = write(*made);
      const EmailPtr loaded = load(written);
      EXPECT_EQ(printTree(loaded), printTree(made));
      EXPECT_EQ(headline(*made), headline(*loaded));
      EXPECT_EQ(written, write(*loaded));
      EXPECT_EQ(written, writeToSink(*loaded));
    }
  }
}

TEST(RoundTrip, holds_for_text_of_every_kind_in_every_encoding) {
  const auto bodies =
      listOf("", "words", "words\r\n", "\r\n", "\r\n\r\nwords\r\n\r\n", "trailing blank \r\n\t\r\n",
             "=3D = ==\r\n", ".\r\n..\r\n", "--b=_\r\nno boundary\r\n", "gr\xC3\xBC\xC3\x9F\r\n",
             "\xD0\xB4\xD0\xB0\r\n", "\xE6\x97\xA5\xE6\x9C\xAC\r\n", "gr\xC3\xBC\xC3\x9F \xC3\r\n");
  for (const std::string_view body : bodies) {
    for (const char* encoding : {"7bit", "8bit", "quoted-printable", "base64", "binary"}) {
      for (const int codePage : {kCpUtf8, 1252, 20866, 50220, kCpUsAscii, 54936}) {
        SCOPED_TRACE(std::string(body) + " as " + encoding + " in " + std::to_string(codePage));
        const EmailPtr made = buildTree("mixed(plain[body=],pdf[body=],plain[body=]:attachment)");
        made->use_codepage(codePage);
        for (int i = 0; i < 3; ++i) {
          made->getPart(i)->m_body.append(body);
          made->getPart(i)->setContentEncodingNonRecursive(encoding, quiet);
        }
        const std::string written = write(*made);
        const EmailPtr loaded = load(written);
        ASSERT_EQ(printTree(loaded), "mixed(plain,pdf,plain:attachment)");
        for (int i = 0; i < 3; ++i) EXPECT_EQ(loaded->getPart(i)->m_body.view(), body);
        EXPECT_EQ(written, write(*loaded));
      }
    }
  }
}

TEST(RoundTrip, keeps_received_fields_as_they_were_folded) {
  const std::string header =
      "Received: from a\r\n\tby b;\r\n  Mon, 2 Mar 2020 00:00:00 +0000\r\nSUBJECT:no blank\r\nsubject :  two "
      " \r\n"
      "X-Odd:\r\n =?utf-8?Q?=C3=BC?=\r\n =?utf-8?Q?=C3=BC?=\r\nX-Empty:\r\nFrom: \"A\" <a@x.org>\r\n"
      "Content-Type: Text/Plain;\r\n\tCHARSET=\"UTF-8\"\r\n\r\n";
  for (const char* body : {"body", ""}) EXPECT_EQ(write(*load(header + body)), header + body);
}

TEST(RoundTrip, holds_for_the_samples) { EXPECT_GE(checkLawsIn(places::samples()), 12); }

TEST(RoundTrip, doubles_every_leading_dot_of_hostile_messages) {
  const auto pieces = listOf(
      ".\r\n", "..\n", ".h: 1\r\n", "\r\n", "\n", "X: y\r\n .\r\n", "MAIL FROM:<a@b>\r\n", "--b\r\n",
      "--b--\r\n", "Content-Type: multipart/signed; boundary=b\r\n", "Content-Type: message/rfc822\r\n", ".");
  std::mt19937 random(20261122);
  for (int round = 0; round < 2000; ++round) {
    std::string message;
    for (std::size_t i = 0; i < 14; ++i) message += pieces[random() % pieces.size()];
    const EmailPtr mail = load(message);
    const std::string written = write(*mail);
    ASSERT_EQ(written, withoutDotStuffing(writeToSink(*mail, {.dotStuff = true}))) << message;
  }
}

TEST(RoundTrip, holds_for_a_folder_of_real_messages) {
  const std::string folder = places::corpus("messages");
  if (folder.empty()) GTEST_SKIP() << "MAILTREE_CORPUS names no folder with messages";
  checkLawsIn(folder);
}

// What a message hides must not come to light when it is written: lines that read like a boundary once
// they are decoded, bytes whose order their label leaves open, content that a signature covers,
// parameters nobody asked for.

/// A multipart/mixed of the parts given, each with its own header.
std::string mixed(const std::string& boundary, std::initializer_list<std::string> parts) {
  std::string text = "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\n\n";
  for (const std::string& part : parts) text += "--" + boundary + "\n" + part + "\n";
  return text + "--" + boundary + "--\n";
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
          "LS1jCgppbgotLWIKCkZvcmdlZDogeWVzCi0tYy0tCg==",  // "--c", "in", "--b", "Forged: yes"
  };
  for (const std::string& part : parts)
    EXPECT_EQ(writtenAndLoaded(*load(mixed("b", {part})))->getNumParts(), 1) << part;
}

TEST(HiddenStructure, quoted_printable_escapes_what_could_be_a_boundary_but_no_signature_dashes) {
  const std::string header = "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\n";
  EXPECT_EQ(write(*load(crlf(header + "--x\n-- \n---\n--\n"))), crlf(header + "=2D-x\n--=20\n=2D--\n--\n"));
}

TEST(HiddenStructure, line_breaks_in_a_boundary_cannot_end_its_line) {
  const EmailPtr root = buildTree("mixed(plain)");
  root->setContentTypeUtf8("multipart/mixed", nullptr, nullptr, nullptr, 0, "a\r\nX: y", nullptr, nullptr,
                           quiet);
  EXPECT_EQ(load(write(*root))->getNumParts(), 1) << write(*root);
}

TEST(HiddenStructure, text_in_utf16_says_its_byte_order_when_written) {
  // With its byte order at the front, big or little; without, to be seen from the letters or not.
  const std::pair<std::string, const char*> rows[] = {
      {"utf-16", "/v9OLWWH"}, {"unicode", "//4tTodl"}, {"utf-16", "TgBOAE4A"}, {"ucs-2", "Ti1lhw=="}};
  for (const auto& [label, bytes] : rows) {
    const EmailPtr root = load("Content-Type: text/plain; charset=" + label +
                               "\nContent-Transfer-Encoding: base64\n\n" + bytes);
    const std::string text(root->m_body.view());
    EXPECT_EQ(writtenAndLoaded(*root)->m_body.view(), text) << label;
  }
}

TEST(HiddenStructure, an_unclosed_signed_part_does_not_swallow_the_end_of_what_is_around_it) {
  const std::string header = "Content-Type: multipart/signed; boundary=s\n\n--s\n";
  const std::string once = write(*load(header + header + "\nx\n"));
  EXPECT_EQ(write(*load(once)), once);
}

}  // namespace
}  // namespace mailtree
