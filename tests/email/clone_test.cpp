// Copies of trees, and literal texts replaced throughout them.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using Pairs = std::vector<std::pair<const char*, const char*>>;

LogNull quiet;
const Pairs kAnn = {{"NAME", "Ann"}}, kZoe = {{"NAME", "Zoë"}};

void fill(ExtPtrArray& list, const Pairs& pairs) {
  for (const auto& [key, value] : pairs) ASSERT_TRUE(list.appendObject(new StringPair(key, value)));
}

void replaceAll(Email2& node, const Pairs& pairs) {
  ExtPtrArray list;
  fill(list, pairs);
  node.replaceStrings(list, quiet);
}

/// A copy in which the texts are replaced.
EmailPtr copyWith(Email2& node, const Pairs& pairs, bool share = false) {
  ExtPtrArray list;
  fill(list, pairs);
  return EmailPtr(node.cloneAndReplace_v3(share, list, quiet));
}

const std::string kMessage =
    "From: =?iso-8859-1?Q?J=F6rg?= <joerg@x.org>\nTo: Ann <ann@x.org>,\n\t\"B, C\" <b@x.org>\n"
    "Subject:  odd   folding\n\there\nX-Odd:none\nMIME-Version: 1.0 (odd)\n"
    "Content-Type: multipart/mixed;\n   BOUNDARY=\"in  ner\"\n\n"
    "--in  ner\nContent-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: 8bit\n\n"
    "gr\xFC\xDF NAME\n--in  ner\nContent-Type: image/png; name=NAME.png\n"
    "Content-Transfer-Encoding: base64\n\nTkFNRQ==\n--in  ner\nContent-Type: application/pdf\n"
    "Content-Disposition: attachment;\n filename=NAME.pdf\n\nNAME\n--in  ner--\n";

TEST(Clone, is_written_like_the_original_and_shares_bytes_of_images_and_pdfs_only_when_asked) {
  const EmailPtr original = load(kMessage);
  const std::string written = write(*original);
  for (const bool share : {false, true}) {
    const EmailPtr copy(original->clone_v3(share, quiet));
    EXPECT_EQ(write(*copy), written) << share;
    EXPECT_EQ(copy->getNumRecipients(1), 2) << share;
    EXPECT_NE(copy->m_common, original->m_common) << share;
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(copy->getPart(i)->m_body.getData2() == original->getPart(i)->m_body.getData2(),
                share && i > 0);
    copy->use_codepage(65001);
    copy->setHeaderField("Subject", "other", quiet);
    copy->getPart(1)->m_body.append("changed");
    EXPECT_EQ(write(*original), written) << share;
  }
}

TEST(Clone, carries_signed_content_for_as_long_as_it_is_unchanged) {
  const std::string part = "content-type:  TEXT/plain\nX-Odd:no blank\n\n.odd  NAME \n";
  const EmailPtr original = load("Content-Type: multipart/signed; boundary=outer\n\n--outer\n" + part +
                                 "\n--outer\nContent-Type: application/pkcs7-signature\n\nx\n--outer--\n");
  const EmailPtr copy(original->clone_v3(true, quiet));
  EXPECT_EQ(write(*copy), write(*original));
  replaceAll(*copy, kAnn);
  EXPECT_FALSE(contains(write(*copy), "NAME"));
  EXPECT_TRUE(contains(write(*original), part));
  original->getPart(0)->m_body.append("more");
  const EmailPtr ofChanged(original->clone_v3(true, quiet));
  EXPECT_EQ(write(*ofChanged), write(*original));
}

TEST(ReplaceStrings, replaces_in_texts_fields_and_addresses_but_not_in_other_bodies) {
  const EmailPtr original = load(kMessage);
  const Pairs pairs = {
      {"NAME", "Zoë"}, {"Jörg", "Ann\r\nBcc: x@y.z"}, {"odd folding", "O"}, {"ann@", "eve@"}};
  for (const bool share : {false, true}) {
    const EmailPtr copy = copyWith(*original, pairs, share);
    const EmailPtr again = load(write(*copy));
    EXPECT_EQ(fieldOf(*again, "Subject"), "odd   folding\there") << "blanks are what they are";
    EXPECT_EQ(fieldOf(*again, "From"), "\"Ann Bcc: x@y.z\" <joerg@x.org>");
    EXPECT_EQ(fieldOf(*again, "To"), "Ann <eve@x.org>, \"B, C\" <b@x.org>");
    EXPECT_EQ(fieldOf(*again, "Bcc"), "(none)");
    EXPECT_EQ(printTree(again, TreeDetail::names),
              "mixed(plain,png[name=Zoë.png,file=Zoë.png],pdf[file=Zoë.pdf]:attachment)");
    EXPECT_EQ(again->getPart(0)->m_body.view(), "grüß Zoë") << write(*copy);
    EXPECT_EQ(again->getPart(1)->m_body.view(), "NAME");
    EXPECT_EQ(again->getPart(2)->m_body.view(), "NAME");
    EXPECT_EQ(disagreeingFields(*copy), "");
    EXPECT_EQ(copy->m_fromAddr.m_name.view(), "Ann Bcc: x@y.z");
  }
}

TEST(ReplaceStrings, leaves_what_holds_no_key_as_it_is) {
  const EmailPtr email = load(kMessage);
  const std::string written = write(*email);
  const void* const body = email->getPart(0)->m_body.getData2();
  for (const Pairs& pairs : {Pairs{}, Pairs{{"", "x"}}, Pairs{{"nowhere", "x"}}, Pairs{{"name", "x"}}}) {
    replaceAll(*email, pairs);
    EXPECT_EQ(write(*email), written) << (pairs.empty() ? "nothing" : pairs[0].first);
    EXPECT_EQ(email->getPart(0)->m_body.getData2(), body);
  }
}

TEST(ReplaceStrings, puts_values_into_fields_without_breaking_them) {
  // The field, what is replaced, and the line as it is written.
  const std::tuple<const char*, Pairs, const char*> rows[] = {
      {"Subject: for NAME", {{"NAME", "A\r\nX: y\n\nz"}}, "Subject: for A X: y  z"},
      {"Subject: =?utf-8?Q?f=C3=BCr_N=41?= =?utf-8?Q?ME?=", kZoe, "Subject: =?utf-8?Q?f=C3=BCr_Zo=C3=AB?="},
      {"Subject: NAME", {{"NAME", "=?utf-8?Q?=41?="}}, "Subject: =?utf-8?Q?=3D=3Futf-8=3FQ=3F=3D41=3F=3D?="},
      {"Subject: a", {{"a", "bb"}, {"b", "c"}}, "Subject: cc"},
      {"NAME: NAME", kAnn, "NAME: Ann"},
      {"To: \"NAME\" <a@x.org>", {{"NAME", "E\" <e@x.org>, \""}}, "To: \"E\\\" <e@x.org>, \\\"\" <a@x.org>"},
      {"To: NAME@x.org", {{"NAME", "e@x.org, a"}}, "To: \"e@x.orga\"@x.org"},
      {"To: NAME", {{"NAME", "Ann <a@x.org>, b@x.org"}}, "To: Ann <a@x.org>, b@x.org"},
      {"To: WHO AND", {{"WHO", "Ann"}, {"AND", "<a@x.org>"}}, "To: Ann <a@x.org>"},
      {"To: NAME, b@x.org", {{"NAME", ""}}, "To: b@x.org"},
      {"To: =?utf-8?Q?Doe=2C_NAME?= <a@x.org>", kZoe, "To: =?utf-8?Q?Doe=2C_Zo=C3=AB?= <a@x.org>"},
      {"To: =?utf-8?Q?=3Ceve=40x=3E_NAME?=", kAnn, "To: =?utf-8?Q?=3Ceve=40x=3E_Ann?="},
      {"Content-ID: <NAME@x>", kAnn, "Content-ID: <Ann@x>"},
      {"Content-Disposition: inline; filename*=utf-8''N%41ME.pdf; size=3",
       {{"NAME", "a\"; x=\"y"}},
       "Content-Disposition: inline; filename=\"a\\\"; x=\\\"y.pdf\"; size=3"},
      {"Content-Type: text/plain; name=\"NAME.txt\"", kAnn, "Content-Type: text/plain; name=Ann.txt"},
  };
  for (const auto& [given, pairs, expected] : rows) {
    const EmailPtr email = load(std::string(given) + "\nX-Other:  kept\n  so\n\nbody\n");
    const std::string disagreeing = disagreeingFields(*email);
    replaceAll(*email, pairs);
    EXPECT_EQ(write(*email).find(std::string(expected) + "\r\nX-Other:  kept\r\n  so\r\n"), 0u)
        << given << "\n"
        << write(*email);
    EXPECT_EQ(disagreeingFields(*email), disagreeing) << given;
  }
}

TEST(ReplaceStrings, reads_dates_and_senders_again) {
  const EmailPtr email = load("From: NAME\nDate: NAME\nCc: NAME\n\nx\n");
  replaceAll(*email, {{"NAME", "a@x.org"}, {"a@x.org", "Sat, 21 Nov 2026 08:30:00 +0100"}});
  EXPECT_EQ(email->m_date.m_hour, 7);
  const EmailPtr sent = load("From: NAME\nBcc: NAME\n\nx\n");
  sent->m_bccAddrs.removeAllObjects();
  sent->addRecipient(3, "NAME", "hidden@x.org", quiet);
  replaceAll(*sent, {{"NAME", "a@x.org"}});
  EXPECT_EQ(sent->m_fromAddr.m_address.view(), "a@x.org");
  ASSERT_EQ(sent->getNumRecipients(3), 1) << "recipients in no field stay";
  StringBuffer full;
  sent->getRecipientFullUtf8(3, 0, full, quiet);
  EXPECT_EQ(full.view(), "\"a@x.org\" <hidden@x.org>");
}

TEST(ReplaceStrings, deliberate_keeps_boundaries) {
  const EmailPtr email = load(
      "Content-Type: multipart/mixed; boundary=NAME; x=NAME\n\n--NAME\nContent-Type: "
      "text/plain\n\nNAME\n--NAME\n\nb\n--NAME--\n");
  replaceAll(*email, {{"NAME", ""}});
  EXPECT_EQ(
      write(*email),
      crlf("Content-Type: multipart/mixed; boundary=NAME; x=\"\"\n\n--NAME\nContent-Type: text/plain\n\n\n"
           "--NAME\n\nb\n--NAME--\n"));
}

TEST(ReplaceStrings, encodes_texts_for_what_they_hold_now) {
  const std::string longLine(2000, 'x');
  // Fields, value, and text read back.
  const std::tuple<const char*, const char*, std::string> rows[] = {
      {"", "Zoë", "for Zoë"},
      {"Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: 7bit\n", "Zoë", "for Zoë"},
      {"Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: 8bit\n", "шесть",
       "for шесть"},
      {"Content-Type: text/html; charset=us-ascii\nContent-Transfer-Encoding: 7bit\n", "6 €", "6 €"},
      {"Content-Type: text/plain; charset=utf-8\n", longLine.c_str(), "for " + longLine},
  };
  for (const auto& [fields, value, expected] : rows) {
    const EmailPtr email = load(std::string("MIME-Version: 1.0\n") + fields + "\nfor NAME\n");
    replaceAll(*email, {{"NAME", value}});
    const std::string written = write(*email);
    const bool is8bit = written.find_first_of("\xC3\xD1\xE2\xEB") != std::string::npos;
    EXPECT_EQ(is8bit, contains(written, "Encoding: 8bit")) << written;
    EXPECT_TRUE(contains(load(written)->m_body.view(), expected)) << fields << written;
    EXPECT_LE(StringBuffer(std::string_view(written)).longestLineLength(), 998u) << fields;
  }
}

TEST(ReplaceStrings, keeps_an_attached_text_in_its_charset_or_labels_it_anew) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"Zo\xC3\xAB", "iso-8859-1", "gr\xFC\xDF Zo\xEB"},
      {"6 \xE2\x82\xAC", "utf-8", "gr\xC3\xBC\xC3\x9F 6 \xE2\x82\xAC"},
  };
  for (const auto& [value, charset, bytes] : rows) {
    const EmailPtr email = load(
        "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b\nContent-Type: text/plain; "
        "charset=iso-8859-1\nContent-Disposition: attachment; filename=a.txt\nContent-Transfer-Encoding: "
        "base64\n\nZ3L83yBOQU1F\n--b--\n");
    const EmailPtr copy = copyWith(*email, {{"NAME", value}}, true);
    const EmailPtr again = load(write(*copy));
    EXPECT_EQ(again->getPart(1)->m_body.view(), bytes) << value;
    EXPECT_TRUE(contains(fieldOf(*again->getPart(1), "Content-Type"), charset)) << value;
  }
}

}  // namespace
}  // namespace mailtree
