// The charset of an email's text, and what is mended in bodies that came in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "tests/email/cases.h"
#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using namespace std::string_literals;

LogNull quiet;

int chosen(Email2& mail, int before, const char* preferred, const char* text) {
  mail.m_common->m_charset.clear();
  if (before) mail.m_common->m_charset.setByCodePage(before);
  mail.m_common->m_preferredCharset.setFromUtf8(preferred);
  XString given(text);
  mail.chooseCharsetIfNecessaryX(given, quiet);
  return mail.get_charset_codepage();
}

void setPlain(Email2& mail, std::string_view text) {
  DataBuffer data;
  data.append(text);
  StringBuffer type("text/plain");
  mail.setBody(data, true, type, nullptr, quiet);
}

TEST(BodyCharset, is_chosen_to_carry_the_text) {
  // Of an email in us-ascii that prefers utf-8 output deliberately relabels each part.
  for (const auto& [before, preferred, text, after] : rowsOf<4>(R"(
    0     |              |             | 0
    0     |              | plain ascii | 20127
    0     |              | café        | 28591
    0     |              | żółć        | 28592
    0     |              | Привет      | 65001
    0     | koi8-r       | Привет      | 20866
    20127 |              | ascii       | 20127
    20127 |              | café        | 65001
    20127 | iso-8859-2   | żółć        | 28592
    20127 | no-such      | café        | 65001
    20127 | utf-8        | café        | 20127
    28591 |              | café        | 28591
    28591 | iso-8859-7   | Ω           | 65001
    1200  |              | ascii       | 1200
    1201  |              | ascii       | 1201
    65001 | iso-8859-1   | ascii       | 65001)"))
    EXPECT_EQ(chosen(*buildTree("plain"), std::stoi(before), preferred.c_str(), text.c_str()),
              std::stoi(after))
        << text << " from " << before << ", preferred " << preferred;
}

TEST(BodyCharset, follows_the_header_of_a_received_message_when_that_carries_the_text) {
  const EmailPtr mail = load("Subject: \xCF\xF0\xE8\xE2\xE5\xF2, \xEA\xE0\xEA \xE4\xE5\xEB\xE0\n\nx\n");
  EXPECT_EQ(chosen(*mail, 0, "", "Привет"), 1251);
  EXPECT_EQ(chosen(*mail, 0, "", "日本"), 65001);
}

/// A received message: the code page of the email, what was mended in its text and the text.
std::string received(const std::string& message) {
  const EmailPtr mail = load(message);
  const Email2& part = mail->getNumParts() ? *mail->getPart(mail->getNumParts() - 1) : *mail;
  std::string out = std::to_string(mail->get_charset_codepage());
  for (const RepairName& known : kRepairNames)
    if (part.m_repairs.has(known.repair)) out.append(", ").append(known.name);
  return out.append(": ").append(part.m_body.view());
}

TEST(BodyCharset, of_received_text_is_found_out_and_the_text_mended) {
  // C2 and C3 are Cyrillic letters too. Without a byte order mark only markup tells utf-16.
  for (const auto& [fields, body, result] : rowsOf<3>(R"(
     | \xD0\x9F\xD1\x80\xD0\xB8 | 65001: При
     | caf\xE9 au lait | 28591, no charset declared: café au lait
     | \xC2\xF1\xE5 \xED\xE0\xF8\xE8 | 28591, no charset declared: Âñå íàøè
     | caf\xC3\xA9 cut \xC3 | 65001, damaged text: caf\xC3\xA9 cut \xC3
     | \xD0\xB4\xD0\xB0 \xD0 | 65001, damaged text: \xD0\xB4\xD0\xB0 \xD0
    Subject: \xCF\xF0\xE8\xE2\xE5\xF2, \xEA\xE0\xEA\n | \xC2\xF1\xE5 | 1251, no charset declared: Все
    Content-Type: text/html\n | <p>\xE9</p> | 28591, no charset declared: <p>é</p>
    Content-Type: text/plain; charset=iso-8859-7\n | \xE1\xE2 | 28597: αβ
    Content-Type: text/plain\nContent-Disposition: inline; filename=a.txt\n | \xE9 | 0: \xE9
    Content-Type: application/octet-stream\n | \xE9 | 0: \xE9
    Content-Type: text/plain\n | \xFF\xFEh\x00i\x00 | 0, unlabelled utf-16: hi
    Content-Type: text/plain\n | h\x00i\x00 | 0: h\x00i\x00
    Content-Type: text/html\n | <\x00p\x00>\x00x\x00 | 65001, unlabelled utf-16: <p>x
    Content-Type: text/html; name=x.doc\n | <\x00p\x00>\x00x\x00 | 0: <\x00p\x00>\x00x\x00
    Content-Type: text/html; name=x.pdf\n | <\x00p\x00>\x00x\x00 | 0: <\x00p\x00>\x00x\x00
    Content-Type: text/html\nContent-Disposition: inline; filename=a\n | <\x00>\x00 | 0: <\x00>\x00
    Content-Type: text/plain; charset=utf-8\n | a\x00b | 65001, NUL bytes: a b
    Content-Type: text/plain; charset=iso-8859-1\n | a\x00b | 28591: a\x00b
    Content-Type: text/html\nContent-Disposition:attachment; filename=a.PDF\n | % | 0, PDF labelled as HTML: %
    Content-Type: text/plain; charset=utf-8\n | \xC3\xB6 \xFF | 65001, damaged text: \xC3\xB6 \xFF
    Content-Type: text/plain; charset=big5\n | \xA4\xA4\xA4\xE5\xA4 | 950, damaged text: 中文\xEF\xBF\xBD)"))
    EXPECT_EQ(received(fields + "\n" + body), result) << fields;
}

TEST(BodyCharset, long_html_lines_are_written_encoded) {
  const std::string line(2'000, 'x'), html = "Content-Type: text/html\n";
  const std::string html7bit = html + "Content-Transfer-Encoding: 7bit\n\n";
  EXPECT_EQ(received(html7bit + line), "0, lines too long for mail: " + line);
  EXPECT_EQ(received(html7bit + line.substr(1)), "0: " + line.substr(1));
  EXPECT_EQ(received(html + "\n" + line), "0: " + line);
  const EmailPtr mail = load(html7bit + line);
  EXPECT_EQ(fieldOf(*mail, "Content-Transfer-Encoding"), "quoted-printable");
  EXPECT_THAT(write(*mail), HasSubstr("xxx=\r\n"));
}

TEST(BodyCharset, html_says_the_charset_of_the_email) {
  // Deliberate: where no tag is needed, the page is not completed either; us-ascii is what a 7-bit page gets.
  for (const auto& [codePage, html, prepared] : rowsOf<3>(R"(
    20127 | <p>fragment | same
    0     | <p>fragment | same
    28591 | <p>7bit</p> | same
    1252  | <p>7bit</p> | same
    65001 | <p>7bit</p> | same
    65001 | <p>ä</p> | <html><head><META utf-8"></head><body><p>ä</p></body></html>
    0     | <p>ä</p> | <html><head><META iso-8859-1"></head><body><p>ä</p></body></html>
    50220 | <p>7bit</p> | <html><head><META iso-2022-jp"></head><body><p>7bit</p></body></html>
    20127 | <meta charset=utf-8><p>x | <html><head><META us-ascii"></head><body><p>x</body></html>
    65001 | <html><head><meta charset=UTF-8></head><body>x</body></html> | same
    65001 | <meta charset=UTF-8><p>x | <html><head><meta charset=UTF-8></head><body><p>x</body></html>)")) {
    const EmailPtr mail = buildTree("html");
    mail->m_common->m_charset.clear();
    if (codePage != "0") mail->m_common->m_charset.setByCodePage(std::stoi(codePage));
    DataBuffer page;
    page.append(html);
    mail->prepHtmlBody(page, quiet);
    StringBuffer brief(page.view());
    brief.replaceAllOccurances("META http-equiv=\"Content-Type\" content=\"text/html; charset=", "META ");
    EXPECT_EQ(brief.view(), prepared == "same" ? html : prepared) << codePage << html;
  }
}

TEST(BodyCharset, meta_tag_of_the_html_body_is_brought_up_to_date) {
  const EmailPtr mail = buildTree("mixed(alt(plain,html[body=<meta charset=iso-8859-1>x]),pdf)");
  EXPECT_FALSE(mail->updateHtmlMetaCharset(quiet)) << "no charset chosen";
  mail->use_codepage(65001);
  EXPECT_TRUE(mail->updateHtmlMetaCharset(quiet));
  EXPECT_THAT(mail->findHtmlPart()->m_body.view(), HasSubstr("charset=utf-8"));
  const EmailPtr plain = buildTree("plain");
  plain->use_codepage(65001);
  EXPECT_FALSE(plain->updateHtmlMetaCharset(quiet));
}

TEST(BodyCharset, text_outside_the_charset_is_written_in_utf8) {
  const EmailPtr mail = buildTree("alt(plain[body=one],html[body=<p>two</p>])");
  mail->use_codepage(28591);
  setPlain(*mail, "Ω");
  EXPECT_THAT(write(*mail), AllOf(HasSubstr("=CE=A9"), HasSubstr("text/plain; charset=utf-8"),
                                  testing::Not(HasSubstr("charset=iso-8859-1"))));
}

TEST(BodyCharset, no_part_promises_7bit_when_its_charset_no_longer_is) {
  const EmailPtr mail = buildTree("alt(plain[body=日本],html[body=<p>日本</p>])");
  EXPECT_EQ(chosen(*mail, 50220, "", "😀"), 65001);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(mail->getPart(i)->m_transferEncoding.view(), "quoted-printable") << i;
}

/// A text that counts as a file of its own, as patches are sent.
EmailPtr inlinePatch() {
  return load(
      "Content-Type: text/plain; charset=iso-8859-1\nContent-Disposition: inline; filename=fix.patch\n"
      "Content-Transfer-Encoding: 8bit\n\ncaf\xE9\n");
}

TEST(BodyCharset, text_with_a_file_name_is_kept_in_the_charset_of_its_label) {
  for (const auto& [text, label, bytes] :
       rowsOf<3>("grüß | charset=iso-8859-1 | gr=FC=DF\n Ω | charset=utf-8 | =CE=A9")) {
    const EmailPtr mail = inlinePatch();
    setPlain(*mail, text);
    EXPECT_THAT(write(*mail), AllOf(HasSubstr(label), HasSubstr(bytes))) << text;
  }
}

TEST(BodyCharset, label_says_what_is_stored_whatever_the_part_is_called) {
  const std::tuple<std::string, void (*)(Email2&), const char*> rows[] = {
      {"text/plain; charset=koi8-r\nContent-Disposition: inline; filename=a\n\n\xC1",
       [](Email2& mail) { mail.setName(StringBuffer("b"), quiet); }, "koi8-r; name=b\r\n"},
      {"text/plain; charset=koi8-r\n\n\xC1",
       [](Email2& mail) { mail.setFilenameUtf8("a", quiet), mail.setContentDisposition1("inline", quiet); },
       "charset=utf-8\r\n"},
      {"text/plain; charset=koi8-r\nContent-Disposition: attachment\n\n\xC1",
       [](Email2& mail) { mail.setContentDisposition1("inline", quiet); }, "\r\n\xC1"},
      {"text/plain; charset=gbk\nContent-Transfer-Encoding: 8bit\n\n\x80", [](Email2&) {},
       "charset=gbk\r\nContent-Transfer-Encoding: 8bit\r\n\r\n\x80"},
      {"text/plain; charset=gbk\n\n1", [](Email2& mail) { setPlain(mail, "€"); }, "gb18030"},
  };
  for (const auto& [part, change, written] : rows) {
    const EmailPtr mail = load("Subject: s\nContent-Type: " + part);
    mail->use_codepage(contains(part, "gbk") ? 936 : 20866);
    change(*mail);
    EXPECT_THAT(write(*mail), HasSubstr(written)) << part;
  }
}

TEST(BodyCharset, text_with_a_file_name_becomes_a_body_when_it_gets_an_enclosure) {
  const EmailPtr mail = inlinePatch();
  mail->convertToMultipartX("multipart/mixed", quiet);
  EXPECT_EQ(mail->getPart(0)->m_body.view(), "café\n");
  EXPECT_THAT(write(*mail), AllOf(HasSubstr("charset=iso-8859-1"), HasSubstr("caf\xE9")));
}

TEST(BodyCharset, hyperlinks_of_every_body_are_collected) {
  const EmailPtr mail = buildTree(
      "alt(plain[body=none],html[body=<a href='https://one.example/'>1</a><a "
      "href=https://two.example/>2</a>])");
  ExtPtrArraySb urls;
  mail->captureHyperlinkUrls(urls);
  ASSERT_EQ(urls.getSize(), 2);
  EXPECT_EQ(urls.sbAt(0)->view(), "https://one.example/");
  EXPECT_EQ(urls.sbAt(1)->view(), "https://two.example/");
}

TEST(SendCost, adds_up_by_level_with_security_compounding) {
  const EmailPtr mail = buildTree("mixed(plain[body=12345],png[body=123])");
  const unsigned plain = mail->getPart(0)->getSendCost(), png = mail->getPart(1)->getSendCost();
  const unsigned own = mail->getSendCost() - plain - png;
  mail->m_common->m_sendSigned = true;
  EXPECT_EQ(mail->getPart(0)->getSendCost(), plain + 2'000);
  EXPECT_EQ(mail->getSendCost(), own + plain + png + 3 * 2'000);
  mail->m_common->m_sendEncrypted = true;
  const unsigned parts = (plain + 2'000) * 100 / 80 + (png + 2'000) * 100 / 80;
  EXPECT_EQ(mail->getSendCost(), (own + parts + 2'000) * 100 / 80);
  const Killed dead(*mail->getPart(1));
  EXPECT_EQ(mail->getSendCost(), (own + (plain + 2'000) * 100 / 80 + 2'000) * 100 / 80);
}

TEST(SendCost, deliberate_wraps_at_32_bits) {
  const EmailPtr mail = buildTree("plain[body=]");
  mail->m_body.appendUninitialized(43'000'000);
  const unsigned cost = mail->getSendCost();
  mail->m_common->m_sendEncrypted = true;
  EXPECT_EQ(mail->getSendCost(), cost * 100U / 80U);
  EXPECT_LT(mail->getSendCost(), cost);
}

}  // namespace
}  // namespace mailtree
