// Bodies: which text a reader sees, where a new one goes, its charset, and what is repaired in received ones.
#include "tests/email/cases.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using namespace std::string_view_literals;

std::string effectiveOf(const Email2& mail, std::string_view before = "") {
  DataBuffer bytes;
  bytes.append(before);
  mail.getEffectiveBodyData(mail, bytes, quiet);
  return std::string(bytes.view());
}

/// The plain and the HTML body, both in quoted-printable, and what a reader would see; "-" for none.
std::string readingOf(Email2& mail) {
  StringBuffer untouched("x"), out[4];
  const bool found[] = {mail.getPlainTextBodyUtf8(mail, out[0], quiet),
                        mail.getHtmlBodyUtf8(mail, out[1], quiet),
                        mail.getPlainTextBodyQP(mail, out[2], untouched, quiet),
                        mail.getHtmlBodyQP(mail, out[3], untouched, quiet)};
  EXPECT_EQ(untouched.view(), "x");
  EXPECT_TRUE(mail.hasPlainTextBody() == found[2] && mail.hasHtmlBody() == found[3]);
  std::string text;
  for (int i = 0; i < 4; ++i) text.append(found[i] ? out[i].getString() : "-").append(" ");
  return text + effectiveOf(mail);
}

TEST(Bodies, are_found_in_every_shape) {
  // The utf-8 forms look everywhere, the QP forms down the first parts only.
  // Deliberate: a signed part beside a footer is not looked into.
  for (const auto& [tree, expected] : rowsOf<2>(R"(
    plain | plain - plain - plain                              || html[body=ä] | - ä - =C3=A4 ä
    none | - - - - none                            || mixed(alt(plain,html),pdf) | plain html plain html plain
    mixed(plain,alt(html)) | plain html plain - plain       || mixed(pdf:attachment,plain) | plain - - - plain
    alt(plain,related(html,png)) | plain html plain html plain || report(html,delivery) | html - - html html
    report | - - - - report                                    || png | - - - -\x20
    signed(alt(plain,html),p7s) | plain html plain html plain
    mixed(signed(plain,p7s),plain[body=f]) | f - plain - plain
    none(plain:attachment,none(plain),html) | - - - - html)"))
    EXPECT_EQ(readingOf(*buildTree(tree)), expected) << tree;
  EXPECT_EQ(effectiveOf(*buildTree("mixed(png:inline)"), "before"), "") << "deliberately emptied";
  EXPECT_EQ(effectiveOf(*buildTree("plain"), "before "), "before plain");
}

TEST(Bodies, come_in_a_code_page_when_asked_for_one) {
  const EmailPtr mail = buildTree("plain[body=caf\xC3\xA9]");
  for (const auto& [codePage, bytes] : {std::pair(0, "café"), std::pair(65001, "café"),
                                        std::pair(28591, "caf\xE9"), std::pair(20127, "caf?")}) {
    DataBuffer out;
    out.append("replaced");
    mail->getEffectiveBodyMb(*mail, codePage, out, quiet);
    EXPECT_EQ(out.view(), bytes) << codePage;
  }
}

TEST(Bodies, of_dead_nodes_are_not_found) {
  const EmailPtr mail = buildTree("mixed(alt(plain,html),pdf)");
  const Killed inner(*nodeAt(*mail, "/0"));
  EXPECT_EQ(readingOf(*mail), "- - - - ");
  EXPECT_EQ(mail->getEffectiveBodyObject3(*mail), nullptr);
  const Killed root(*mail);
  EXPECT_EQ(readingOf(*mail), "- - - - ");
  EXPECT_EQ(effectiveOf(*mail, "kept"), "kept");
  EXPECT_EQ(mail->get_charset_codepage(), 0);
}

/// Sets or adds a body; the path of its part, and the type where it was corrected.
std::string put(Email2& mail, std::string_view how, const std::string& type, std::string_view body,
                LogBase& log = quiet, bool isText = true) {
  DataBuffer data;
  data.append(body);
  StringBuffer given(type);
  Email2* part = &mail;
  const auto operation = how == "set" ? &Email2::setBody : &Email2::addAlternativeBody;
  EXPECT_TRUE((mail.*operation)(data, isText, given, &part, log));
  EXPECT_TRUE(data.isEmpty()) << "moved";
  return pathOf(mail, part) + (given.view() == type ? "" : " " + given.extractString());
}

TEST(Bodies, new_one_goes_where_it_belongs) {
  for (const auto& [before, how, type, after, part] : rowsOf<5>(R"(
    plain | set | plain | plain | /                    || plain | set | html | html | /
    pdf | set | plain | plain | /              || alt(plain,html) | set | plain | alternative(plain,html) | /0
    alt(plain,html) | set | html | alternative(plain,html) | /1
    alt(html) | set | plain | alternative(plain,html) | /0
    alt(plain) | set | calendar | alternative(plain,calendar) | /1
    related(png) | set | html | related(html,png) | /0 || related(png) | set | plain | related(plain,png) | /0
    mixed(pdf:attachment) | set | html | mixed(pdf:attachment,html) | /1
    mixed(pdf:attachment) | set | plain | mixed(plain,pdf:attachment) | /0
    mixed(plain[body=],pdf) | set | html | mixed(html,pdf) | none
    mixed(plain,pdf) | set | html | mixed(alternative(plain,html),pdf) | /0/1
    mixed(plain:attachment,pdf) | set | html | mixed(alternative(html),plain:attachment,pdf) | /0/0
    alt(plain:attachment,html) | set | plain | alternative(plain,plain:attachment,html) | /0
    multipart/x-mixed-replace(plain) | set | html | multipart/x-mixed-replace(plain,html) | /1
    plain | add | html | alternative(plain,html) | /1  || html | add | plain | alternative(plain,html) | /0
    plain[body=] | add | html | alternative(html) | /0
    mixed(related(html,png),pdf) | add | html | mixed(related(html,png),pdf) | /0/0
    related(html,png) | add | plain | alternative(plain,related(html,png)) | /0)")) {
    const EmailPtr mail = buildTree(before);
    EXPECT_EQ(put(*mail, how, "text/" + type, "new"), part) << before << how << type;
    EXPECT_EQ(printTree(mail) + disagreeingFields(*mail), after) << before << how << type;
    EXPECT_THAT(write(*mail), HasSubstr("new")) << before << how << type;
  }
}

TEST(Bodies, multipart_as_the_type_of_one_is_corrected_and_said) {
  for (const bool isText : {true, false}) {
    const EmailPtr mail = buildTree("plain");
    LogMemory log;
    EXPECT_EQ(put(*mail, "set", "Multipart/mixed", "x", log, isText),
              isText ? "/ text/plain" : "/ application/octet-stream");
    EXPECT_EQ(said(log), "Invalid body content type.|");
    EXPECT_EQ(mail->m_transferEncoding.view(), isText ? "7bit" : "base64");
  }
}

TEST(Bodies, long_lines_are_not_sent_as_7bit) {
  for (const char* tree : {"plain", "alt(plain)"})
    for (const std::size_t length : {990, 991}) {
      const EmailPtr mail = buildTree(tree);
      put(*mail, "set", "text/plain", "short\r\n" + std::string(length, 'x'));
      const Email2& part = mail->getNumParts() ? *mail->getPart(0) : *mail;
      EXPECT_EQ(part.m_transferEncoding.view(), length == 990 ? "7bit" : "quoted-printable") << tree;
      EXPECT_EQ(fieldOf(part, "Content-Transfer-Encoding"), part.m_transferEncoding.view()) << tree;
    }
}

TEST(Bodies, changed_one_leaves_the_rest_byte_for_byte) {
  const std::string before =
      write(*load(crlf("Subject:  odd   spacing\nX-Kept: =?utf-8?q?as?=\n  it was\nMIME-Version: 1.0\n"
                       "Content-Type: multipart/mixed;\n boundary=\"=_one\"\n\npreamble\n--=_one\n"
                       "Content-Type: text/plain;charset=US-ASCII\n\nOLD\n--=_one\n"
                       "Content-Disposition: attachment;\n  filename=a.csv\nContent-Type: text/csv; "
                       "charset=x-odd\n\na;b\n--=_one--\n")));
  const EmailPtr mail = load(before);
  put(*mail, "set", "text/plain", "NEW");
  const std::string written = write(*mail);
  const std::size_t part = before.find("Content-Type: text/plain");
  EXPECT_EQ(written.substr(0, part), before.substr(0, part));
  EXPECT_EQ(written.substr(written.find("Content-Disp")), before.substr(before.find("Content-Disp")));
  EXPECT_THAT(written, HasSubstr("\r\n\r\nNEW\r\n"));
}

TEST(Bodies, what_a_multipart_held_that_could_not_be_split_becomes_a_part) {
  for (const auto& [received, change, after] : rowsOf<3>(R"(
    mixed\n | attach | mixed(plain,zip:attachment)
    alternative; boundary=c\n | attach | mixed(alternative(plain),zip:attachment)
    mixed\nContent-Transfer-Encoding: binary\n\n\x01 | attach | mixed(octet,zip:attachment)
    mixed\n | text/plain | mixed(plain,plain) || mixed\n | text/html | mixed(alternative(plain,html))
    alternative; boundary=c\n | text/plain | mixed(alternative(plain),plain)
    mixed;boundary=b\n\n--b\nContent-Type:multipart/alternative\n | text/html | mixed(alternative(plain,html))
    related\n | item | related(plain,png))")) {
    const EmailPtr mail = load("Content-Type: multipart/" + received + "\nl\xC3\xB6st\n");
    DataBuffer data;
    StringBuffer type;
    if (change == "attach") mail->addDataAttachmentUtf8("a.zip", nullptr, 0, data, type, quiet);
    if (change == "item") mail->addRelatedContent(buildTree("png").release(), quiet);
    if (change.starts_with("text")) put(*mail, "set", change, "new");
    const EmailPtr again = load(write(*mail));
    EXPECT_EQ(printTree(again), after) << received;
    EXPECT_THAT(write(*again), testing::ContainsRegex("l=F6st|l=C3=B6st|AQps")) << received;
  }
}

TEST(Bodies, ready_part_replaces_the_alternative_of_its_type) {
  const EmailPtr mail = buildTree("alt(plain,related(html,png))");
  mail->getPart(1)->m_contentType.m_subtype.setString("text/html");
  EXPECT_FALSE(mail->addReplaceAlternative(nullptr, "text/html", quiet));
  ASSERT_TRUE(mail->addReplaceAlternative(buildTree("html[body=new]").release(), "text/html", quiet));
  EXPECT_EQ(printTree(mail) + " " + readingOf(*mail), "alternative(plain,html) plain new plain new plain");
}

std::string chosen(Email2& mail, int before, const char* preferred, const char* text) {
  mail.m_common->m_charset.clear();
  if (before) mail.m_common->m_charset.setByCodePage(before);
  mail.m_common->m_preferredCharset.setFromUtf8(preferred);
  XString given(text);
  mail.chooseCharsetIfNecessaryX(given, quiet);
  return std::to_string(mail.get_charset_codepage());
}

TEST(BodyCharset, is_chosen_to_carry_the_text) {
  // Of an email in us-ascii that prefers utf-8 output deliberately relabels each part.
  for (const auto& [before, preferred, text, after] : rowsOf<4>(R"(
    0     |            |             | 0     || 0     |            | plain ascii | 20127
    0     |            | café        | 28591 || 0     |            | żółć        | 28592
    0     |            | Привет      | 65001 || 0     | koi8-r     | Привет      | 20866
    20127 |            | ascii       | 20127 || 20127 |            | café        | 65001
    20127 | iso-8859-2 | żółć        | 28592 || 20127 | no-such    | café        | 65001
    20127 | utf-8      | café        | 20127 || 28591 |            | café        | 28591
    28591 | iso-8859-7 | Ω           | 65001 || 1200  |            | ascii       | 1200
    1201  |            | ascii       | 1201  || 65001 | iso-8859-1 | ascii       | 65001)"))
    EXPECT_EQ(chosen(*buildTree("plain"), std::stoi(before), preferred.c_str(), text.c_str()), after) << text;
}

TEST(BodyCharset, follows_the_header_of_a_received_message_when_that_carries_the_text) {
  const EmailPtr mail = load("Subject: \xCF\xF0\xE8\xE2\xE5\xF2, \xEA\xE0\xEA \xE4\xE5\xEB\xE0\n\nx\n");
  EXPECT_EQ(chosen(*mail, 0, "", "Привет"), "1251");
  EXPECT_EQ(chosen(*mail, 0, "", "日本"), "65001");
}

/// A received message: the code page of the email, what was repaired in its text and the text.
std::string received(const std::string& message) {
  const EmailPtr mail = load(message);
  const Email2& part = mail->getNumParts() ? *mail->getPart(mail->getNumParts() - 1) : *mail;
  std::string out = std::to_string(mail->get_charset_codepage());
  for (const RepairName& known : kRepairNames)
    if (part.m_repairs.has(known.repair)) out.append(", ").append(known.name);
  return out.append(": ").append(part.m_body.view());
}

TEST(BodyCharset, of_received_text_is_detected_and_the_text_repaired) {
  // C2 and C3 are Cyrillic letters too. Without a byte order mark only markup tells utf-16.
  for (const auto& [fields, body, result] : rowsOf<3>(R"(
     | \xD0\x9F\xD1\x80\xD0\xB8 | 65001: При ||  | caf\xE9 au lait | 28591, no charset declared: café au lait
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
  EXPECT_THAT(write(*load(html7bit + line)),
              AllOf(HasSubstr(": quoted-printable\r\n"), HasSubstr("xxx=\r\n")));
}

TEST(BodyCharset, html_says_the_charset_of_the_email) {
  // Deliberate: where no tag is needed, the page is not completed either; us-ascii is what a 7-bit page gets.
  for (const auto& [codePage, html, prepared] : rowsOf<3>(R"(
    20127 | <p>fragment | same || 0 | <p>fragment | same
    28591 | <p>7bit</p> | same || 1252 | <p>7bit</p> | same
    65001 | <p>7bit</p> | same
    65001 | <p>ä</p> | <html><head><META utf-8"></head><body><p>ä</p></body></html>
    0 | <p>ä</p> | <html><head><META iso-8859-1"></head><body><p>ä</p></body></html>
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
  mail->findHtmlPart()->fixContentTypeUtf8("text/plain", quiet);
  EXPECT_FALSE(mail->updateHtmlMetaCharset(quiet)) << "no page";
}

TEST(BodyCharset, of_a_text_outside_it_becomes_utf8_and_no_part_promises_7bit_any_longer) {
  const EmailPtr mail = buildTree("alt(plain[body=日本],html[body=<p>日本</p>])");
  EXPECT_EQ(chosen(*mail, 50220, "", "😀"), "65001");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(mail->getPart(i)->m_transferEncoding.view(), "quoted-printable") << i;
  mail->use_codepage(28591);
  put(*mail, "set", "text/plain", "Ω");
  EXPECT_THAT(write(*mail), AllOf(HasSubstr("=CE=A9"), HasSubstr("text/plain; charset=utf-8"),
                                  testing::Not(HasSubstr("charset=iso-8859-1"))));
}

TEST(BodyCharset, label_says_what_is_stored_under_any_name) {
  // A text with a file name keeps its charset as long as that carries it, and becomes a body in an enclosure.
  const std::string patch =
      "text/plain; charset=iso-8859-1\nContent-Disposition: inline; filename=a\n\ncaf\xE9";
  const std::tuple<std::string, void (*)(Email2&), std::vector<const char*>> rows[] = {
      {"text/plain; charset=koi8-r\nContent-Disposition: inline; filename=a\n\n\xC1",
       [](Email2& mail) { mail.setName(StringBuffer("b"), quiet); },
       {"koi8-r; name=b\r\n"}},
      {"text/plain; charset=koi8-r\n\n\xC1",
       [](Email2& mail) { mail.setFilenameUtf8("a", quiet), mail.setContentDisposition1("inline", quiet); },
       {"charset=utf-8\r\n"}},
      {"text/plain; charset=koi8-r\nContent-Disposition: attachment\n\n\xC1",
       [](Email2& mail) { mail.setContentDisposition1("inline", quiet); },
       {"\r\n\xC1"}},
      {"text/plain; charset=gbk\nContent-Transfer-Encoding: 8bit\n\n\x80",
       [](Email2&) {},
       {"charset=gbk\r\nContent-Transfer-Encoding: 8bit\r\n\r\n\x80"}},
      {"text/plain; charset=gbk\n\n1",
       [](Email2& mail) { put(mail, "set", "text/plain", "€"); },
       {"gb18030"}},
      {patch,
       [](Email2& mail) { put(mail, "set", "text/plain", "grüß"); },
       {"charset=iso-8859-1", "gr=FC=DF"}},
      {patch, [](Email2& mail) { put(mail, "set", "text/plain", "Ω"); }, {"charset=utf-8", "=CE=A9"}},
      {patch,
       [](Email2& mail) { mail.convertToMultipartX("multipart/mixed", quiet); },
       {"iso-8859-1", "caf\xE9"}},
  };
  for (const auto& [part, change, written] : rows) {
    const EmailPtr mail = load("Subject: s\nContent-Type: " + part);
    mail->use_codepage(contains(part, "gbk") ? 936 : contains(part, "koi") ? 20866 : 28591);
    change(*mail);
    for (const char* text : written) EXPECT_THAT(write(*mail), HasSubstr(text)) << part;
    if (written[0] == "iso-8859-1"sv) {
      EXPECT_EQ(mail->getPart(0)->m_body.view(), "café");
    }
  }
}

TEST(BodyCharset, hyperlinks_of_every_body_are_collected) {
  ExtPtrArraySb urls;
  buildTree("alt(plain,html[body=<a href='https://one.example/'>1</a><a href=https://two.example/>2</a>])")
      ->captureHyperlinkUrls(urls);
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

}  // namespace
}  // namespace mailtree
