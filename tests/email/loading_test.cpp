#include <gtest/gtest.h>

#include <functional>

#include "mailtree/mime/MimeMessage2.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// A multipart message of the parts given, each with its own header.
std::string multipart(std::string_view type, std::initializer_list<std::string_view> parts) {
  std::string message = "MIME-Version: 1.0\nContent-Type: " + std::string(type) + "; boundary=\"b=_" +
                        std::to_string(parts.size()) + "\"\n\n";
  for (const std::string_view part : parts)
    message.append("--b=_" + std::to_string(parts.size()) + "\n").append(part).append("\n");
  return message.append("--b=_" + std::to_string(parts.size()) + "--\n");
}

constexpr std::string_view kPlain = "Content-Type: text/plain\n\nwords";
constexpr std::string_view kHtml = "Content-Type: text/html\n\n<p>words";
constexpr std::string_view kNamedPlain = "Content-Type: text/plain; name=a.txt\n\nwords";
constexpr std::string_view kHtmlFile = "Content-Type: text/html\nContent-Disposition: attachment\n\n<p>file";
constexpr std::string_view kPdf = "Content-Type: application/pdf\n\n%PDF";

TEST(Loading, brings_the_top_of_a_message_to_shape) {
  const struct {
    std::string message;
    const char* tree;
  } rows[] = {
      {"Subject: x\n\nwords", "none"},
      {"Content-Type: application/pdf; name=a.pdf\nContent-Disposition: attachment; filename=b.pdf\n\n%PDF",
       "mixed(plain,pdf[name=a.pdf,file=b.pdf]:attachment)"},
      {"Content-Type: application/pdf; name=a.pdf\nContent-Disposition: attachment\n\n%PDF",
       "mixed(plain,pdf[name=a.pdf,file=a.pdf]:attachment)"},
      {"Content-Disposition: attachment\n\nbytes", "mixed(plain,none:attachment)"},
      {"Content-Type: Text/Plain\nContent-Disposition: attachment\n\nbytes", "mixed(plain,plain:attachment)"},
      // secured content, EDI, multiparts and anything not said in exactly that word stay as they are
      {"Content-Type: application/pkcs7-mime\nContent-Disposition: attachment\n\nx",
       "application/pkcs7-mime:attachment"},
      {"Content-Type: application/x-PKCS7-mime\nContent-Disposition: attachment\n\nx",
       "application/x-pkcs7-mime:attachment"},
      {"Content-Type: application/EDIFACT\nContent-Disposition: attachment\n\nx",
       "application/edifact:attachment"},
      {"Content-Type: application/pdf\nContent-Disposition: ATTACHMENT\n\nx", "pdf:ATTACHMENT"},
      {"Content-Type: application/pdf\nContent-Disposition: inline\n\nx", "pdf:inline"},

      {multipart("multipart/mixed", {kPlain, kHtml}), "alternative(plain,html)"},
      {multipart("multipart/mixed", {kHtml, kPlain}), "alternative(html,plain)"},
      {multipart("multipart/mixed", {kPlain, kHtml, kPdf}), "mixed(alternative(plain,html),pdf)"},
      {multipart("multipart/mixed", {kHtml, kPdf, kPlain}), "mixed(alternative(html,plain),pdf)"},
      {multipart("multipart/mixed", {kPlain, kPlain, kHtml, kHtml}),
       "mixed(alternative(plain,html),plain,html)"},
      {multipart("multipart/mixed", {kPdf, kPlain}), "mixed(pdf,plain)"},
      {multipart("multipart/mixed", {kPlain, kHtmlFile}), "mixed(plain,html:attachment)"},
      {multipart("multipart/mixed", {kNamedPlain, kHtml}), "mixed(plain[name=a.txt,file=a.txt],html)"},
      // a name only decides whether there is something to join, not what is joined
      {multipart("multipart/mixed", {kNamedPlain, kHtml, kPlain}),
       "mixed(alternative(plain[name=a.txt,file=a.txt],html),plain)"},
      {multipart("multipart/related", {kPlain, kHtml}), "related(plain,html)"},
      {multipart("multipart/mixed", {multipart("multipart/mixed", {kPlain, kHtml, kPdf})}),
       "mixed(mixed(plain,html,pdf))"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(printTree(load(row.message), TreeDetail::names), row.tree) << row.message;
    EXPECT_EQ(printTree(load(crlf(row.message)), TreeDetail::names), row.tree) << "CRLF: " << row.message;
  }
}

TEST(Loading, from_pop3_leaves_the_top_of_a_message_alone) {
  EXPECT_EQ(printTree(loadPop3("Content-Type: application/pdf\nContent-Disposition: attachment\n\n%PDF")),
            "pdf:attachment");
  EXPECT_EQ(printTree(loadPop3(multipart("multipart/mixed", {kPlain, kHtml}))), "mixed(plain,html)");
}

TEST(Loading, moves_everything_about_a_lone_attachment_to_its_part) {
  const EmailPtr root = load(
      "Subject: Notes\nContent-Type: text/plain; charset=koi8-r; name=n.txt\nContent-Transfer-Encoding: "
      "base64\n"
      "Content-Disposition: attachment; filename=n.txt\n\n8NLJ18XU\n");
  ASSERT_EQ(printTree(root), "mixed(plain,plain:attachment)");
  EXPECT_TRUE(root->m_repairs.has(Repair::loneAttachment));
  EXPECT_EQ(field(*root, "Subject"), "Notes");
  for (const char* gone : {"Content-Transfer-Encoding", "Content-Disposition"})
    EXPECT_EQ(field(*root, gone), "(absent)");
  EXPECT_FALSE(root->m_contentType.m_boundary.isEmpty());
  EXPECT_FALSE(contains(field(*root, "Content-Type"), "koi8-r")) << field(*root, "Content-Type");
  EXPECT_EQ(root->emailCodePage(), 0) << "a file's charset is not the email's";

  EXPECT_TRUE(root->getPart(0)->m_body.isEmpty());
  const Email2& file = *root->getPart(1);
  EXPECT_EQ(file.m_body.view(), "\xF0\xD2\xC9\xD7\xC5\xD4") << "a file keeps its bytes";
  EXPECT_EQ(file.m_attachCodePage, 20866);
  EXPECT_TRUE(file.m_transferEncoding.equals("base64"));
  EXPECT_TRUE(contains(write(*root), "\r\n\r\n8NLJ18XU\r\n"));
}

TEST(Loading, gives_a_lone_attachment_the_charset_that_its_header_was_found_in) {
  const EmailPtr root = load(
      "Subject: gr\xC3\xBC\xC3\x9F\nContent-Type: application/pdf\nContent-Disposition: attachment\n\nx");
  ASSERT_EQ(printTree(root), "mixed(plain,pdf:attachment)");
  EXPECT_EQ(root->emailCodePage(), kCpUtf8);
  EXPECT_EQ(root->getPart(1)->m_attachCodePage, kCpUtf8);
}

TEST(Loading, keeps_the_boundary_when_a_mixed_of_two_becomes_an_alternative) {
  const EmailPtr root = load(multipart("multipart/mixed", {kPlain, kHtml}));
  EXPECT_TRUE(root->m_contentType.m_boundary.equals("b=_2"));
  EXPECT_TRUE(root->m_repairs.has(Repair::looseAlternative));
  EXPECT_TRUE(contains(field(*root, "Content-Type"), "multipart/alternative"))
      << field(*root, "Content-Type");
}

TEST(Loading, takes_the_date_from_the_first_field_that_tells) {
  const struct {
    const char* header;
    const char* date;  ///< null: the time of loading.
  } rows[] = {
      {"Date: Tue, 3 Mar 2020 10:20:30 +0100\nReceived: by x; Mon, 2 Mar 2020 00:00:00 +0000\n",
       "20200303-092030"},
      {"Delivery-Date: Tue, 3 Mar 2020 10:20:30 +0000\n", "20200303-102030"},
      {"Delivery-Date: Wed, 4 Mar 2020 10:20:30 +0000\nDate: Tue, 3 Mar 2020 10:20:30 +0000\n",
       "20200303-102030"},
      {"Received: from a; by b;\n Mon, 2 Mar 2020 23:30:00 -0200\nReceived: by x; Sun, 1 Mar 2020 00:00:00 "
       "+0000\n",
       "20200303-013000"},
      {"Received: by x; soon\n", nullptr},
      {"Received: by x\n", nullptr},
      {"Date: soon\nReceived: by x; Mon, 2 Mar 2020 00:00:00 +0000\n", nullptr},
      {"Subject: x\n", nullptr},
  };
  for (const auto& row : rows) {
    SorvikSysTime before;
    before.getCurrentGmt();
    const EmailPtr root = load(std::string(row.header) + "\nbody");
    const SorvikSysTime& date = root->m_date;
    if (!row.date) {
      EXPECT_LE(std::abs(date.toUnixTime() - before.toUnixTime()), 60) << row.header;
      continue;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%04u%02u%02u-%02u%02u%02u", unsigned{date.m_year},
                  unsigned{date.m_month}, unsigned{date.m_day}, unsigned{date.m_hour},
                  unsigned{date.m_minute}, unsigned{date.m_second});
    EXPECT_STREQ(text, row.date) << row.header;
    EXPECT_TRUE(date.m_isUtc) << row.header;
  }
}

std::string addresses(const ExtPtrArray& list) {
  std::string text;
  for (int i = 0; i < list.getSize(); ++i) {
    const auto* address = list.at<_svEmailAddress>(i);
    text.append(i ? "|" : "")
        .append(address->m_name.view())
        .append("<")
        .append(address->m_address.view())
        .append(">");
  }
  return text;
}

TEST(Loading, reads_sender_and_recipients) {
  const struct {
    const char* header;
    const char* from;
    const char* to;
  } rows[] = {
      {"From: Ann <ann@x.org>, bob@y.org\nTo: c@z.org, Dan <d@z.org>\n", "Ann<ann@x.org>",
       "<c@z.org>|Dan<d@z.org>"},
      {"From: first@x.org\nFrom: second@x.org\n", "<first@x.org>", ""},
      {"From: nobody\n", "<>", ""},
      {"To: a@x.org\nSubject: x\nto: b@x.org\nTO: c@x.org\n", "<>", "<a@x.org>|<b@x.org>|<c@x.org>"},
      // an encoded word is a name, whatever it decodes to
      {"From: =?utf-8?q?boss=40bank=2Ecom=2C?= <crook@x.org>\n", "boss@bank.com,<crook@x.org>", ""},
      {"To: =?utf-8?q?a=40x=2Eorg=2C_b?= <c@x.org>\n", "<>", "a@x.org, b<c@x.org>"},
      {"From: J\xC3\xB6rg <j@x.org>\n", "J\xC3\xB6rg<j@x.org>", ""},
  };
  for (const auto& row : rows) {
    for (const bool pop3 : {false, true}) {
      const std::string message = std::string(row.header) + "\nbody";
      const EmailPtr root = pop3 ? loadPop3(message) : load(message);
      const _svEmailAddress& from = root->m_fromAddr;
      EXPECT_EQ(std::string(from.m_name.view()) + "<" + std::string(from.m_address.view()) + ">", row.from)
          << row.header << (pop3 ? "POP3" : "");
      EXPECT_EQ(addresses(root->m_toAddrs), row.to) << row.header << (pop3 ? "POP3" : "");
    }
  }
}

TEST(Loading, joins_repeated_recipient_fields_of_the_message) {
  const struct {
    const char* fields;
    const char* written;
    const char* to;
  } rows[] = {
      {"To: a@x.org\nCc: k@x.org\nTo: b@x.org\nCc: l@x.org\n",
       "To: a@x.org,\r\n b@x.org\r\nCc: k@x.org,\r\n l@x.org\r\n\r\n", "<a@x.org>|<b@x.org>"},
      {"To: Undisclosed recipients\nTo: Otto <o@b.c>\n",
       "To: \"Undisclosed recipients\", Otto <o@b.c>\r\n\r\n", "Otto<o@b.c>"},
      {"To: J\xC3\xB6rg <j@x>\nTo: J\xF6rg <k@x>\n",
       "To: =?utf-8?Q?J=C3=B6rg?= <j@x>, =?utf-8?Q?J=C3=B6rg?= <k@x>\r\n\r\n",
       "J\xC3\xB6rg<j@x>|J\xC3\xB6rg<k@x>"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = load(std::string(row.fields) + "\n");
    EXPECT_EQ(write(*root), row.written) << row.fields;
    EXPECT_EQ(addresses(root->m_toAddrs), row.to) << row.fields;
  }
}

TEST(Loading, takes_the_charset_of_the_email_from_the_first_part_that_is_no_attachment) {
  const std::string_view koi = "Content-Type: text/plain; charset=koi8-r\n\nx";
  const std::string_view utf8 = "Content-Type: text/plain; charset=utf-8\n\nx";
  const std::string_view file =
      "Content-Type: text/plain; charset=big5\nContent-Disposition: attachment\n\nx";
  const std::string_view odd = "Content-Type: text/plain; charset=nonsense\n\nx";
  const struct {
    std::string message;
    int codePage;
  } rows[] = {
      {multipart("multipart/mixed", {koi, utf8}), 20866},
      {multipart("multipart/mixed", {file, utf8}), kCpUtf8},
      {multipart("multipart/mixed", {odd, koi}), 20866},  // plain ASCII says nothing about its charset
      {multipart("multipart/mixed", {kPlain, koi}), 20866},
      {multipart("multipart/mixed", {kPlain}), 0},
      {multipart("multipart/mixed", {file}), 0},
  };
  for (const auto& row : rows) EXPECT_EQ(load(row.message)->emailCodePage(), row.codePage) << row.message;
}

TEST(Loading, resets_what_the_settings_say_about_sending_and_placeholder_charsets) {
  LogNull log;
  SystemCerts certs;
  for (const char* placeholder : {"default", "X-User-Defined"}) {
    auto* common = new _svEmailCommon;
    common->m_sendSigned = common->m_sendEncrypted = true;
    common->m_idOnServer = 7;
    common->m_charset.setByName(placeholder);
    const EmailPtr root(Email2::createFromMimeText2a(*common, "Subject: x\n\n", 12, certs, log, false));
    EXPECT_FALSE(common->m_sendSigned || common->m_sendEncrypted);
    EXPECT_EQ(common->m_idOnServer, -1);
    EXPECT_STREQ(common->m_charset.getName(), "") << placeholder;
  }
}

TEST(Loading, undoes_what_pop3_does_to_a_message) {
  const struct {
    const char* raw;
    const char* body;
  } rows[] = {
      {"Subject: x\r\n\r\nline\r\n.\r\n", "line\r\n"},
      {"Subject: x\r\n\r\n..dot\r\n...\r\n.\r\n", ".dot\r\n..\r\n"},
      {"Subject: x\r\n\r\nno end\r\n", "no end\r\n"},
      {"Subject: x\r\n\r\n\r\n.\r\n", "\r\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(loadPop3(row.raw)->m_body.view(), row.body) << row.raw;
}

TEST(Loading, from_pop3_strips_folders_from_file_names) {
  const EmailPtr root = loadPop3(multipart(
      "multipart/mixed",
      {"Content-Type: application/pdf\nContent-Disposition: attachment; filename=\"../../etc/a.pdf\"\n\nx"}));
  EXPECT_EQ(printTree(root, TreeDetail::names), "mixed(pdf[file=a.pdf]:attachment)");
}

EmailPtr loadDb(std::string_view message, bool discard, DataBuffer& bytes) {
  LogNull log;
  SystemCerts certs;
  bytes.append(message);
  return EmailPtr(Email2::createFromMimeDb(*new _svEmailCommon, bytes, discard, false, certs, log, false));
}

TEST(Loading, from_bytes_joins_related_blocks_that_were_split_apart) {
  const std::string one = multipart("multipart/related", {kHtml});
  const std::string two = multipart("Multipart/Related", {kPdf, kPlain});
  const struct {
    std::string message;
    const char* tree;
  } rows[] = {
      {multipart("multipart/mixed", {kPlain, one, kPdf, two, one}),
       "mixed(plain,related(html,pdf,plain,html),pdf)"},
      {multipart("multipart/mixed", {one, two}), "mixed(related(html,pdf,plain))"},
      {multipart("multipart/mixed", {one, kPdf}), "mixed(related(html),pdf)"},
      {one, "related(html)"},
  };
  for (const auto& row : rows) {
    DataBuffer bytes;
    EXPECT_EQ(printTree(loadDb(row.message, false, bytes)), row.tree) << row.message;
  }
  EXPECT_EQ(printTree(load(rows[1].message)), "mixed(related(html),related(pdf,plain))")
      << "from text they stay apart";
}

TEST(Loading, empties_its_input_only_when_told_to) {
  DataBuffer kept, discarded;
  EXPECT_TRUE(loadDb("Subject: x\n\nbody", false, kept));
  EXPECT_EQ(kept.view(), "Subject: x\n\nbody");
  EXPECT_TRUE(loadDb("Subject: x\n\nbody", true, discarded));
  EXPECT_TRUE(discarded.isEmpty());
  LogNull log;
  SystemCerts certs;
  for (const bool discard : {false, true}) {
    StringBuffer text("Subject: x\n\nbody");
    const EmailPtr root(
        Email2::createFromMimeText2(*new _svEmailCommon, text, discard, true, certs, log, true));
    EXPECT_EQ(root->m_body.view(), "body");
    EXPECT_EQ(text.isEmpty(), discard);
  }
}

TEST(Loading, takes_an_empty_message_and_every_wrong_size) {
  LogNull log;
  SystemCerts certs;
  const struct {
    const char* text;
    int size;
  } rows[] = {{"", 0}, {nullptr, 0}, {nullptr, 5}, {"Subject: x\n\n", -1}};
  for (const auto& row : rows) {
    const EmailPtr root(
        Email2::createFromMimeText2a(*new _svEmailCommon, row.text, row.size, certs, log, false));
    ASSERT_TRUE(root) << row.size;
    EXPECT_EQ(root->getNumHeaderFields(), 0) << row.size;
    EXPECT_TRUE(root->m_body.isEmpty()) << row.size;
  }
}

TEST(Loading, opens_parts_that_are_packed_in_old_forms) {
  const std::string apple =
      multipart("multipart/appledouble",
                {"Content-Type: application/applefile\nContent-Transfer-Encoding: base64\n\nAAUWBw==",
                 "Content-Type: image/png; name=a.png\nContent-Transfer-Encoding: base64\n\nUE5H"});
  const EmailPtr root = load(multipart("multipart/mixed", {kPlain, apple}));
  ASSERT_EQ(printTree(root), "mixed(plain,png:attachment)");
  EXPECT_EQ(root->getPart(1)->m_body.view(), "PNG");

  const EmailPtr uu = load(multipart(
      "multipart/mixed", {kPlain,
                          "Content-Type: application/octet-stream\nContent-Transfer-Encoding: x-uuencode\n\n"
                          "begin 644 cat.txt\n#0V%T\n`\nend"}));
  EXPECT_EQ(uu->getPart(1)->m_body.view(), "Cat");
}

TEST(Loading, takes_an_html_attachment_named_pdf_for_a_pdf) {
  const struct {
    const char* part;
    const char* tree;
  } rows[] = {
      {"Content-Type: text/html\nContent-Disposition: attachment; filename=A.PDF\n\n%PDF",
       "mixed(plain,pdf:attachment)"},
      {"Content-Type: text/html\nContent-Disposition: inline; filename=a.pdf\n\n%PDF",
       "mixed(plain,html:inline)"},
      {"Content-Type: text/html\nContent-Disposition: attachment; filename=a.pdf.html\n\n%PDF",
       "mixed(plain,html:attachment)"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = load(multipart("multipart/mixed", {kPlain, row.part}));
    EXPECT_EQ(printTree(root), row.tree) << row.part;
    EXPECT_EQ(root->getPart(1)->m_repairs.has(Repair::notHtml), contains(row.tree, "pdf")) << row.part;
  }
}

TEST(Loading, copies_bodies_out_of_a_parse_tree_that_is_to_be_kept) {
  LogMemory log;
  log.m_debugLogging = true;
  SystemCerts certs;
  MimeMessage2 tree;
  ASSERT_TRUE(tree.loadText("Subject: x\n\nbody", log));
  const EmailPtr copy(
      Email2::createFromMimeObject2(*new _svEmailCommon, tree, /*extractBody=*/false, true, log, certs));
  EXPECT_EQ(copy->m_body.view(), "body");
  EXPECT_EQ(tree.getMimeBodyDb()->view(), "body");
  EXPECT_TRUE(contains(log.text(), "copyMimeBody..."));
  const EmailPtr moved(
      Email2::createFromMimeObject2(*new _svEmailCommon, tree, /*extractBody=*/true, true, log, certs));
  EXPECT_EQ(moved->m_body.view(), "body");
  EXPECT_TRUE(tree.getMimeBodyDb()->isEmpty());
}

TEST(Loading, stops_at_the_depth_limit_in_a_parse_tree_made_by_hand) {
  LogNull log;
  SystemCerts certs;
  MimeMessage2 tree;
  MimeMessage2* deepest = &tree;
  for (int i = 0; i < 50'000; ++i) {
    MimeMessage2* const part = MimeMessage2::createNewObject();
    deepest->addPart(part);
    deepest = part;
  }
  const EmailPtr root(Email2::createFromMimeObject2(*new _svEmailCommon, tree, true, false, log, certs));
  int depth = 0;
  for (const Email2* node = root.get(); node->getNumParts(); node = node->getPartConst(0)) ++depth;
  EXPECT_EQ(depth, kMaxDepth);
  EXPECT_TRUE(root->m_common->m_limits.has(Limit::depth));
}

TEST(Loading, reports_the_limits_that_parsing_met) {
  std::string message;
  for (int i = 0; i < kMaxDepth + 5; ++i)
    message += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" +
               std::to_string(i) + "\n";
  EXPECT_TRUE(load(message)->m_common->m_limits.has(Limit::depth));
  EXPECT_TRUE(load("Subject: x\n\n")->m_common->m_limits.isEmpty());
}

TEST(Loading, gives_every_kind_of_access_to_the_raw_body) {
  const EmailPtr root = load("Content-Type: text/plain; charset=iso-8859-1\n\ngr\xFC\xDF");
  DataBuffer replaced, appended;
  replaced.append(std::string_view("old"));
  appended.append(std::string_view("old"));
  XString text("old");
  root->getRawBodyThisPart(replaced);
  root->getNonMultipartBodyData(appended);
  root->getRawBodyUtf8(text);
  EXPECT_EQ(replaced.view(), "gr\xC3\xBC\xC3\x9F");
  EXPECT_EQ(appended.view(), "oldgr\xC3\xBC\xC3\x9F");
  EXPECT_EQ(text.view(), "oldgr\xC3\xBC\xC3\x9F");
  root->getRawBodyThisPart(root->m_body);
  EXPECT_EQ(root->getNonMultipartBody3()->view(), "gr\xC3\xBC\xC3\x9F")
      << "a body survives being its own destination";
}

}  // namespace
}  // namespace mailtree
