// The charset of an email's text, and what is mended in bodies that came in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

LogNull quiet;

/// A message with one text, whose header was found to be in a code page.
EmailPtr mailWithHeaderIn(std::string_view subject8bit) {
  return load("Subject: " + std::string(subject8bit) + "\n\nx\n");
}

TEST(BodyCharset, is_chosen_to_carry_the_text) {
  const struct {
    int before;
    const char* preferred;
    const char* text;
    int after;
  } rows[] = {
      {0, "", "", 0},
      {0, "", "plain ascii", 20127},
      {0, "", "café", 28591},
      {0, "", "żółć", 28592},
      {0, "", "Привет", 65001},
      {0, "", "日本語", 65001},
      {0, "", "café 😀", 65001},
      {0, "", "Ελλάδα и Россия", 65001},
      {0, "koi8-r", "Привет", 20866},
      {0, "koi8-r", "日本語", 65001},
      {0, "iso-2022-jp", "日本語", 50220},
      {0, "windows-1252", "5 € “so”", 1252},
      {0, "no-such-charset", "café", 28591},
      {20127, "", "ascii", 20127},
      {20127, "", "café", 65001},
      {20127, "iso-8859-2", "żółć", 28592},
      {20127, "iso-8859-2", "日本語", 65001},
      {20127, "no-such-charset", "café", 65001},
      {20127, "utf-8", "café", 20127},  // deliberately: output relabels each part
      {28591, "", "café", 28591},
      {28591, "", "Ω", 65001},
      {28591, "iso-8859-7", "Ω", 65001},  // the preference is asked once
      {1200, "", "日本語", 1200},
      {1201, "", "ascii", 1201},
      {65001, "iso-8859-1", "ascii", 65001},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree("plain");
    mail->m_common->m_charset.setByCodePage(row.before);
    if (row.before == 0) mail->m_common->m_charset.clear();
    mail->m_common->m_preferredCharset.setFromUtf8(row.preferred);
    XString text(row.text);
    LogNull log;
    mail->chooseCharsetIfNecessaryX(text, log);
    EXPECT_EQ(mail->get_charset_codepage(), row.after)
        << row.text << " from " << row.before << ", preferred " << row.preferred;
  }
}

TEST(BodyCharset, follows_the_header_of_a_received_message_when_that_carries_the_text) {
  for (const auto& [text, codePage] : {std::pair{"Привет", 1251}, {"日本", 65001}}) {
    const EmailPtr mail =
        mailWithHeaderIn("\xCF\xF0\xE8\xE2\xE5\xF2, \xEA\xE0\xEA \xE4\xE5\xEB\xE0");  // cp1251
    ASSERT_EQ(mail->m_header.getDetectedCP(), 1251);
    mail->m_common->m_charset.clear();
    XString body(text);
    LogNull log;
    mail->chooseCharsetIfNecessaryX(body, log);
    EXPECT_EQ(mail->get_charset_codepage(), codePage) << text;
  }
}

struct Received {
  std::string body;
  int codePage;
  RepairSet repairs;
};

Received receive(const char* fields, std::string_view body) {
  const EmailPtr mail = load(std::string(fields) + "\n" + std::string(body));
  const Email2& part = mail->getNumParts() ? *mail->getPart(mail->getNumParts() - 1) : *mail;
  return {std::string(part.m_body.view()), mail->get_charset_codepage(), part.m_repairs};
}

TEST(BodyCharset, of_unlabelled_text_is_found_out) {
  const struct {
    const char* fields;
    std::string body;
    const char* text;
    int codePage;
  } rows[] = {
      {"", "caf\xC3\xA9", "café", 65001},
      {"", "caf\xE9 au lait", "café au lait", 28591},
      {"", "\xD0\x9F\xD1\x80\xD0\xB8", "При", 65001},  // no C2 or C3 in it
      {"", "\xE6\x97\xA5\xE6\x9C\xAC", "日本", 65001},
      {"Subject: \xCF\xF0\xE8\xE2\xE5\xF2, \xEA\xE0\xEA \xE4\xE5\xEB\xE0\n", "\xCF\xF0\xE8\xE2\xE5\xF2",
       "Привет", 1251},
      // C2 and C3 are Cyrillic letters too
      {"", "\xC2\xF1\xE5 \xED\xE0\xF8\xE8", "Âñå íàøè", 28591},
      {"Subject: \xCF\xF0\xE8\xE2\xE5\xF2, \xEA\xE0\xEA \xE4\xE5\xEB\xE0\n", "\xC2\xF1\xE5", "Все", 1251},
      {"", "caf\xC3\xA9 cut \xC3", "caf\xC3\xA9 cut \xC3", 65001},
      {"Content-Type: text/html\n", "<p>\xE9</p>", "<p>é</p>", 28591},
      {"Content-Type: text/plain; charset=iso-8859-7\n", "\xE1\xE2", "αβ", 28597},
      {"Content-Type: text/plain\nContent-Disposition: inline; filename=a.txt\n", "\xE9", "\xE9", 0},
      {"Content-Type: application/octet-stream\n", "\xE9", "\xE9", 0},
  };
  for (const auto& row : rows) {
    const Received got = receive(row.fields, row.body);
    EXPECT_EQ(got.body, row.text) << row.fields << row.text;
    EXPECT_EQ(got.codePage, row.codePage) << row.fields << row.text;
  }
}

TEST(BodyCharset, received_bodies_are_mended) {
  const std::string page16 = "<\0p\0>\0x\0<\0/\0p\0>\0"s;
  const std::string longLine(2'000, 'x');
  const struct {
    const char* fields;
    std::string body;
    std::string mended;
    Repair repair;
    bool isMended;
  } rows[] = {
      {"Content-Type: text/plain\n", "\xFF\xFEh\0i\0"s, "hi", Repair::utf16, true},
      {"Content-Type: text/plain\n", "h\0i\0"s, "h\0i\0"s, Repair::utf16, false},  // no mark, no markup
      {"Content-Type: text/html\n", page16, "<p>x</p>", Repair::utf16, true},
      {"Content-Type: text/html; name=x.doc\n", page16, page16, Repair::utf16, false},
      {"Content-Type: text/html\nContent-Disposition: inline; filename=p.html\n", page16, page16,
       Repair::utf16, false},
      {"Content-Type: text/plain; charset=utf-8\n", "a\0b"s, "a b", Repair::nulBytes, true},
      {"Content-Type: text/plain; charset=iso-8859-1\n", "a\0b"s, "a\0b"s, Repair::nulBytes, false},
      {"Content-Type: text/html\nContent-Disposition: attachment; filename=X.PDF\n", "%PDF", "%PDF",
       Repair::notHtml, true},
      {"Content-Type: text/html\nContent-Transfer-Encoding: 7bit\n", longLine, longLine, Repair::longLines,
       true},
      {"Content-Type: text/html\nContent-Transfer-Encoding: 7bit\n", longLine.substr(1), longLine.substr(1),
       Repair::longLines, false},
      {"Content-Type: text/html\n", longLine, longLine, Repair::longLines, false},
      {"Content-Type: text/plain; charset=utf-8\n", "Gr\xC3\xB6\xC3\x9F \xFF", "Gr\xC3\xB6\xC3\x9F \xFF",
       Repair::damagedText, true},
      {"Content-Type: text/plain; charset=big5\n", "\xA4\xA4\xA4\xE5\xA4", "中文\uFFFD", Repair::damagedText,
       true},
      {"", "\xD0\xB4\xD0\xB0 \xD0", "\xD0\xB4\xD0\xB0 \xD0", Repair::damagedText, true},
  };
  for (const auto& row : rows) {
    const Received got = receive(row.fields, row.body);
    EXPECT_EQ(got.body, row.mended) << row.fields << row.body.substr(0, 40);
    EXPECT_EQ(got.repairs.has(row.repair), row.isMended) << row.fields << row.body.substr(0, 40);
  }
}

TEST(BodyCharset, long_html_lines_are_written_encoded) {
  const EmailPtr mail = load("Content-Type: text/html\nContent-Transfer-Encoding: 7bit\n\n<p>" +
                             std::string(2'000, 'x') + "</p>\n");
  EXPECT_EQ(fieldOf(*mail, "Content-Transfer-Encoding"), "quoted-printable");
  EXPECT_THAT(write(*mail), HasSubstr("xxx=\r\n"));
}

std::string prepared(int codePage, std::string_view html) {
  const EmailPtr mail = buildTree("html");
  mail->m_common->m_charset.clear();
  if (codePage) mail->m_common->m_charset.setByCodePage(codePage);
  DataBuffer page;
  page.append(html);
  LogNull log;
  mail->prepHtmlBody(page, log);
  return std::string(page.view());
}

TEST(BodyCharset, html_says_the_charset_of_the_email) {
  const struct {
    int codePage;
    const char* html;
    const char* charset;  // null: the page stays as it was
  } rows[] = {
      {20127, "<p>fragment", nullptr},
      {0, "<p>fragment", nullptr},  // us-ascii is chosen
      {28591, "<p>7bit</p>", nullptr},
      {1252, "<p>7bit</p>", nullptr},
      {65001, "<p>7bit</p>", nullptr},
      {65001, "<p>ä</p>", "utf-8"},
      {0, "<p>ä</p>", "iso-8859-1"},
      {50220, "<p>7bit</p>", "iso-2022-jp"},
      {65001, "<html><head><meta charset=iso-8859-1></head><body>x</body></html>", "utf-8"},
      {20127, "<meta charset=utf-8><p>x", "us-ascii"},
      {65001, "<html><head><meta charset=UTF-8></head><body>x</body></html>", nullptr},
      {65001, "<meta charset=UTF-8><p>x", "UTF-8"},  // completed, its own tag kept
  };
  for (const auto& row : rows) {
    const std::string page = prepared(row.codePage, row.html);
    if (!row.charset) {
      EXPECT_EQ(page, row.html) << row.codePage;
      continue;
    }
    EXPECT_THAT(page, HasSubstr("charset="s + row.charset)) << row.codePage << row.html;
    EXPECT_THAT(page, HasSubstr("<body>")) << row.codePage << row.html;
    EXPECT_EQ(page.find("charset="), page.rfind("charset=")) << page;
  }
}

TEST(BodyCharset, meta_tag_of_the_html_body_is_brought_up_to_date) {
  const EmailPtr mail = buildTree("mixed(alt(plain,html[body=<meta charset=iso-8859-1>x]),pdf)");
  LogNull log;
  EXPECT_FALSE(mail->updateHtmlMetaCharset(log)) << "no charset chosen";
  mail->use_codepage(65001);
  EXPECT_TRUE(mail->updateHtmlMetaCharset(log));
  EXPECT_THAT(mail->findHtmlPart()->m_body.view(), HasSubstr("charset=utf-8"));
  EXPECT_FALSE(buildTree("plain")->updateHtmlMetaCharset(log));
}

TEST(BodyCharset, text_outside_the_charset_is_written_in_utf8) {
  const EmailPtr mail = buildTree("alt(plain[body=one],html[body=<p>two</p>])");
  mail->use_codepage(28591);
  DataBuffer text;
  text.append("Ω");
  StringBuffer type("text/plain");
  LogNull log;
  mail->setBody(text, true, type, nullptr, log);
  const std::string written = write(*mail);
  EXPECT_THAT(written, HasSubstr("=CE=A9"));
  EXPECT_THAT(written, HasSubstr("text/plain; charset=utf-8"));
  EXPECT_THAT(written, Not(HasSubstr("charset=iso-8859-1")));
}

TEST(BodyCharset, no_part_promises_7bit_when_its_charset_no_longer_is) {
  const EmailPtr mail = buildTree("alt(plain[body=日本],html[body=<p>日本</p>])");
  mail->use_codepage(50220);
  XString text("😀");
  LogNull log;
  mail->chooseCharsetIfNecessaryX(text, log);
  EXPECT_EQ(mail->get_charset_codepage(), 65001);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(mail->getPart(i)->m_transferEncoding.view(), "quoted-printable") << i;
}

/// A text that counts as a file of its own, as patches are sent.
EmailPtr inlinePatch() {
  return load(
      "Content-Type: text/plain; charset=iso-8859-1\nContent-Disposition: inline; filename=fix.patch\n"
      "Content-Transfer-Encoding: 8bit\n\ncaf\xE9\n");
}

TEST(BodyCharset, text_with_a_file_name_is_kept_in_the_charset_of_its_label) {
  const struct {
    const char* text;
    const char* label;
    const char* bytes;
  } rows[] = {{"grüß", "charset=iso-8859-1", "gr=FC=DF"}, {"Ω", "charset=utf-8", "=CE=A9"}};
  for (const auto& row : rows) {
    const EmailPtr mail = inlinePatch();
    DataBuffer text;
    text.append(row.text);
    StringBuffer type("text/plain");
    LogNull log;
    mail->setBody(text, true, type, nullptr, log);
    EXPECT_THAT(write(*mail), HasSubstr(row.label)) << row.text;
    EXPECT_THAT(write(*mail), HasSubstr(row.bytes)) << row.text;
  }
}

TEST(BodyCharset, label_says_what_is_stored_whatever_the_part_is_called) {
  const struct {
    const char* received;
    void (*change)(Email2&);
    const char* written;
  } rows[] = {
      {"text/plain; charset=koi8-r\nContent-Disposition: inline; filename=a\n\n\xC1",
       [](Email2& mail) { mail.setName(StringBuffer("b"), quiet); }, "koi8-r; name=b\r\n"},
      {"text/plain; charset=koi8-r\n\n\xC1",
       [](Email2& mail) { mail.setFilenameUtf8("a", quiet), mail.setContentDisposition1("inline", quiet); },
       "charset=utf-8\r\n"},
      {"text/plain; charset=koi8-r\nContent-Disposition: attachment\n\n\xC1",
       [](Email2& mail) { mail.setContentDisposition1("inline", quiet); }, "\r\n\xC1"},
      {"text/plain; charset=gbk\nContent-Transfer-Encoding: 8bit\n\n\x80", [](Email2&) {},
       "charset=gbk\r\nContent-Transfer-Encoding: 8bit\r\n\r\n\x80"},
      {"text/plain; charset=gbk\n\n1",
       [](Email2& mail) {
         DataBuffer euro;
         euro.append(std::string_view("€"));
         StringBuffer type("text/plain");
         mail.setBody(euro, true, type, nullptr, quiet);
       },
       "gb18030"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = load("Subject: s\nContent-Type: " + std::string(row.received));
    mail->use_codepage(std::string_view(row.received).find("gbk") == std::string_view::npos ? 20866 : 936);
    row.change(*mail);
    EXPECT_THAT(write(*mail), HasSubstr(row.written)) << row.received;
  }
}

TEST(BodyCharset, text_with_a_file_name_becomes_a_body_when_it_gets_an_enclosure) {
  const EmailPtr mail = inlinePatch();
  LogNull log;
  mail->convertToMultipartX("multipart/mixed", log);
  EXPECT_EQ(mail->getPart(0)->m_body.view(), "café\n");
  EXPECT_THAT(write(*mail), HasSubstr("charset=iso-8859-1"));
  EXPECT_THAT(write(*mail), HasSubstr("caf\xE9"));
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
