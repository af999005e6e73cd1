#include <gtest/gtest.h>

#include <tuple>

#include "mailtree/mime/MimeMessage2.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using MessageAndTree = std::pair<std::string, const char*>;

LogNull quiet;
SystemCerts noCerts;

/// A multipart message of the parts given, each with its own header.
std::string multipart(std::string_view type, std::initializer_list<std::string_view> parts) {
  const std::string boundary = "b=_" + std::to_string(parts.size());
  std::string message = "Content-Type: " + std::string(type) + "; boundary=\"" + boundary + "\"\n\n";
  for (const std::string_view part : parts) message.append("--" + boundary + "\n").append(part).append("\n");
  return message + "--" + boundary + "--\n";
}

std::string mixed(std::initializer_list<std::string_view> parts) {
  return multipart("multipart/mixed", parts);
}

/// A message of a type that says it is an attachment.
std::string attached(const std::string& type) {
  return "Content-Type: " + type + "\nContent-Disposition: attachment\n\nx";
}

constexpr std::string_view kPlain = "Content-Type: text/plain\n\nwords";
constexpr std::string_view kHtml = "Content-Type: text/html\n\n<p>words";
constexpr std::string_view kNamedPlain = "Content-Type: text/plain; name=a.txt\n\nwords";
constexpr std::string_view kPdf = "Content-Type: application/pdf\n\n%PDF";

TEST(Loading, brings_the_top_of_a_message_to_shape) {
  const MessageAndTree rows[] = {
      {attached("application/pdf; name=a.pdf"), "mixed(plain,pdf[name=a.pdf,file=a.pdf]:attachment)"},
      {"Content-Disposition: attachment\n\nbytes", "mixed(plain,none:attachment)"},
      // secured content, EDI, multiparts and anything not said in exactly that word stay as they are
      {attached("application/x-PKCS7-mime"), "application/x-pkcs7-mime:attachment"},
      {attached("application/EDIFACT"), "application/edifact:attachment"},
      {"Content-Type: application/pdf\nContent-Disposition: ATTACHMENT\n\nx", "pdf:ATTACHMENT"},

      {mixed({kHtml, kPlain}), "alternative(html,plain)"},
      {mixed({kHtml, kPdf, kPlain}), "mixed(alternative(html,plain),pdf)"},
      {mixed({kPlain, kPlain, kHtml, kHtml}), "mixed(alternative(plain,html),plain,html)"},
      {mixed({kPdf, kPlain}), "mixed(pdf,plain)"},
      {mixed({kPlain, attached("text/html")}), "mixed(plain,html:attachment)"},
      {mixed({kNamedPlain, kHtml}), "mixed(plain[name=a.txt,file=a.txt],html)"},
      // a name only decides whether there is something to join, not what is joined
      {mixed({kNamedPlain, kHtml, kPlain}), "mixed(alternative(plain[name=a.txt,file=a.txt],html),plain)"},
      {mixed({mixed({kPlain, kHtml, kPdf})}), "mixed(mixed(plain,html,pdf))"},
  };
  for (const auto& [message, tree] : rows) {
    EXPECT_EQ(printTree(load(message), TreeDetail::names), tree) << message;
    EXPECT_EQ(printTree(load(crlf(message)), TreeDetail::names), tree) << "CRLF: " << message;
  }
  EXPECT_EQ(printTree(loadPop3(attached("application/pdf"))), "pdf:attachment") << "not from POP3";
}

TEST(Loading, moves_everything_about_a_lone_attachment_to_its_part) {
  const EmailPtr root = load(
      "Subject: Notes\nContent-Type: text/plain; charset=koi8-r; method=m; name=n.txt\n"
      "Content-Transfer-Encoding: base64\n"
      "Content-Disposition: attachment; filename=n.txt; size=6; creation-date=\"x y\"\n\n8NLJ18XU\n");
  ASSERT_EQ(printTree(root), "mixed(plain,plain:attachment)");
  EXPECT_TRUE(root->m_repairs.has(Repair::loneAttachment));
  EXPECT_EQ(root->emailCodePage(), 0) << "a file's charset is not the email's";
  const Email2& file = *root->getPart(1);
  EXPECT_EQ(file.m_body.view(), "\xF0\xD2\xC9\xD7\xC5\xD4") << "a file keeps its bytes";
  EXPECT_EQ(file.m_attachCodePage, 20866);
  const std::string boundary(root->m_contentType.m_boundary.view());
  ASSERT_NE(boundary, "");
  EXPECT_EQ(write(*root),
            crlf("Subject: Notes\nContent-Type: multipart/mixed;\n boundary=\"" + boundary + "\"\n\n--" +
                 boundary + "\nContent-Type: text/plain\n\n\n--" + boundary +
                 "\nContent-Type: text/plain; charset=koi8-r; method=m; name=n.txt\n"
                 "Content-Disposition: attachment; filename=n.txt; size=6; creation-date=\"x y\"\n"
                 "Content-Transfer-Encoding: base64\n\n8NLJ18XU\n\n--" +
                 boundary + "--\n"));
}

TEST(Loading, gives_a_lone_attachment_the_charset_that_its_header_was_found_in) {
  const EmailPtr root = load("Subject: gr\xC3\xBC\xC3\x9F\n" + attached("application/pdf"));
  EXPECT_EQ(root->emailCodePage(), kCpUtf8);
  EXPECT_EQ(root->getPart(1)->m_attachCodePage, kCpUtf8);
}

TEST(Loading, takes_the_date_from_the_first_field_that_tells) {
  // The header, and day, hour and minute of its date; 0 is now.
  const std::pair<std::string, int> rows[] = {
      {"Received: by x; Mon, 2 Mar 2020 00:00:00 +0000\nDelivery-Date: Wed, 4 Mar 2020 10:20:30 +0000\n"
       "Date: Tue, 3 Mar 2020 10:20:30 +0100\n",
       3'09'20},
      {"Delivery-Date: Wed, 4 Mar 2020 10:20:30 +0000\n", 4'10'20},
      {"Received: from a; by b;\n Mon, 2 Mar 2020 23:30:00 -0200\nReceived: by x; Sun, 1 Mar 2020\n",
       3'01'30},
      {"Received: by x\n", 0},
      {"Date: soon\nReceived: by x; Mon, 2 Mar 2020 00:00:00 +0000\n", 0},
  };
  for (const auto& [header, expected] : rows) {
    const SorvikSysTime date = load(header + "\nbody")->m_date;
    SorvikSysTime now;
    now.getCurrentGmt();
    const bool isNow = std::abs(date.toUnixTime() - now.toUnixTime()) <= 60;
    EXPECT_EQ(isNow ? 0 : (date.m_day * 100 + date.m_hour) * 100 + date.m_minute, expected) << header;
    EXPECT_TRUE(date.m_isUtc) << header;
  }
}

std::string addressesOf(const Email2& node) {
  const auto textOf = [](const _svEmailAddress& address) {
    return std::string(address.m_name.view()) + "<" + std::string(address.m_address.view()) + ">";
  };
  std::string text = textOf(node.m_fromAddr);
  for (const ExtPtrArray* list : {&node.m_toAddrs, &node.m_ccAddrs, &node.m_bccAddrs})
    for (int i = 0; i < list->getSize(); ++i) text += "|" + textOf(*list->at<_svEmailAddress>(i));
  return text;
}

TEST(Loading, reads_sender_and_recipients_and_joins_repeated_fields) {
  // The fields; the addresses in them; the fields as they are written, unless that is as they came.
  const std::tuple<std::string, const char*, const char*> rows[] = {
      {"From: Ann <ann@x.org>\nFrom: no@x.org\nTo: c@z.org, Dan <d@z.org>\n",
       "Ann<ann@x.org>|<c@z.org>|Dan<d@z.org>", nullptr},
      {"To: a@x\nCc: k@x\nBcc: m@x\nto: b@x\nCc: l@x\nBcc: n@x\n", "<>|<a@x>|<b@x>|<k@x>|<l@x>|<m@x>|<n@x>",
       "To: a@x,\n b@x\nCc: k@x,\n l@x\nBcc: m@x,\n n@x\n"},
      {"To: Undisclosed recipients\nTo: J\xC3\xB6rg <j@x>\nTo: J\xF6rg <k@x>\n",
       "<>|J\xC3\xB6rg<j@x>|J\xC3\xB6rg<k@x>",
       "To: \"Undisclosed recipients\", =?utf-8?Q?J=C3=B6rg?= <j@x>,\n =?utf-8?Q?J=C3=B6rg?= <k@x>\n"},
      // an encoded word is a name, no matter what it decodes to
      {"From: =?utf-8?q?boss=40bank=2Ecom=2C?= <crook@x.org>\nTo: =?utf-8?q?a=40x=2Eorg=2C_b?= <c@x.org>\n",
       "boss@bank.com,<crook@x.org>|a@x.org, b<c@x.org>", nullptr},
  };
  for (const auto& [fields, addresses, written] : rows) {
    const EmailPtr root = load(crlf(fields + "\n"));
    EXPECT_EQ(addressesOf(*root), addresses) << fields;
    EXPECT_EQ(addressesOf(*loadPop3(fields + "\n")), addresses) << fields << "from POP3";
    EXPECT_EQ(write(*root), crlf((written ? std::string(written) : fields) + "\n"));
  }
}

TEST(Loading, takes_the_charset_of_the_email_from_the_first_part_that_is_no_attachment) {
  const auto text = [](const std::string& name) {
    return "Content-Type: text/plain; charset=" + name + "\n\nx";
  };
  // The last: plain ASCII says nothing about its charset.
  const std::pair<std::string, int> rows[] = {
      {mixed({text("koi8-r"), text("utf-8")}), 20866},
      {mixed({attached("text/plain; charset=big5"), text("utf-8")}), kCpUtf8},
      {mixed({text("nonsense"), kPlain, text("koi8-r")}), 20866},
  };
  for (const auto& [message, codePage] : rows) EXPECT_EQ(load(message)->emailCodePage(), codePage) << message;
}

TEST(Loading, resets_what_the_settings_say_about_sending_and_placeholder_charsets) {
  for (const char* placeholder : {"default", "X-User-Defined"}) {
    auto* common = new _svEmailCommon;
    common->m_sendSigned = common->m_sendEncrypted = true;
    common->m_idOnServer = 7;
    common->m_charset.setByName(placeholder);
    const EmailPtr root(Email2::createFromMimeText2a(*common, "Subject: x\n\n", 12, noCerts, quiet, false));
    EXPECT_FALSE(common->m_sendSigned || common->m_sendEncrypted);
    EXPECT_EQ(common->m_idOnServer, -1);
    EXPECT_STREQ(common->m_charset.getName(), "") << placeholder;
  }
}

TEST(Loading, undoes_what_pop3_does_to_a_message) {
  for (const auto& [raw, body] : std::initializer_list<std::pair<std::string, const char*>>{
           {"..dot\r\n...\r\n.\r\n", ".dot\r\n..\r\n"}, {"no end\r\n", "no end\r\n"}, {"\r\n.\r\n", "\r\n"}})
    EXPECT_EQ(loadPop3("Subject: x\r\n\r\n" + raw)->m_body.view(), body) << raw;
  const EmailPtr root = loadPop3(mixed(
      {"Content-Type: application/pdf\nContent-Disposition: attachment; filename=\"../../etc/a.pdf\"\n\nx"}));
  EXPECT_EQ(printTree(root, TreeDetail::names), "mixed(pdf[file=a.pdf]:attachment)");
}

EmailPtr loadDb(std::string_view message, bool discard, DataBuffer& bytes) {
  bytes.append(message);
  return EmailPtr(
      Email2::createFromMimeDb(*new _svEmailCommon, bytes, discard, false, noCerts, quiet, false));
}

TEST(Loading, from_bytes_joins_related_blocks_that_were_split_apart) {
  const std::string one = multipart("multipart/related", {kHtml});
  const std::string two = multipart("Multipart/Related", {kPdf, kPlain});
  const MessageAndTree rows[] = {
      {mixed({kPlain, one, kPdf, two, one}), "mixed(plain,related(html,pdf,plain,html),pdf)"},
      {mixed({one, kPdf}), "mixed(related(html),pdf)"},
      {one, "related(html)"},
      // but not what a signature covers
      {multipart("multipart/signed",
                 {mixed({one, kPdf, one}), "Content-Type: application/pkcs7-signature\n\nx"}),
       "signed(mixed(related(html),pdf,related(html)),p7s)"},
  };
  for (const auto& [message, tree] : rows) {
    DataBuffer bytes;
    EXPECT_EQ(printTree(loadDb(message, false, bytes)), tree);
  }
  EXPECT_EQ(printTree(load(mixed({one, two}))), "mixed(related(html),related(pdf,plain))") << "not from text";
}

TEST(Loading, empties_its_input_only_when_told_to) {
  for (const bool discard : {false, true}) {
    DataBuffer bytes;
    StringBuffer text("Subject: x\n\nbody");
    const EmailPtr fromBytes = loadDb(text.view(), discard, bytes);
    const EmailPtr fromText(
        Email2::createFromMimeText2(*new _svEmailCommon, text, discard, true, noCerts, quiet, true));
    EXPECT_EQ(fromBytes->m_body.view(), "body");
    EXPECT_EQ(fromText->m_body.view(), "body");
    EXPECT_EQ(bytes.view(), discard ? "" : "Subject: x\n\nbody");
    EXPECT_EQ(text.view(), bytes.view());
  }
}

TEST(Loading, takes_an_empty_message_and_every_wrong_size) {
  const std::pair<const char*, int> rows[] = {{"", 0}, {nullptr, 5}, {"Subject: x\n\n", -1}};
  for (const auto& [text, size] : rows) {
    const EmailPtr root(Email2::createFromMimeText2a(*new _svEmailCommon, text, size, noCerts, quiet, false));
    ASSERT_TRUE(root) << size;
    EXPECT_EQ(write(*root), "\r\n") << size;
  }
}

TEST(Loading, opens_parts_that_are_packed_in_old_forms) {
  const std::string apple =
      multipart("multipart/appledouble",
                {"Content-Type: application/applefile\nContent-Transfer-Encoding: base64\n\nAAUWBw==",
                 "Content-Type: text/plain; charset=koi8-r; name=a.txt\nContent-Transfer-Encoding: "
                 "base64\n\n0NLJ18XU"});
  const EmailPtr root =
      load(mixed({apple,
                  "Content-Type: application/octet-stream\nContent-Transfer-Encoding: x-uuencode\n\n"
                  "begin 644 cat.txt\n#0V%T\n`\nend",
                  "Content-Type: text/html\nContent-Disposition: attachment; filename=A.PDF\n\n%PDF"}));
  EXPECT_EQ(printTree(root), "mixed(plain:attachment,octet,pdf:attachment)");
  EXPECT_EQ(root->getPart(0)->m_body.view(), "\xD0\xD2\xC9\xD7\xC5\xD4") << "a file keeps its bytes";
  EXPECT_EQ(root->getPart(1)->m_body.view(), "Cat");
}

TEST(Loading, copies_bodies_out_of_a_parse_tree_that_is_to_be_kept) {
  LogMemory log;
  log.m_debugLogging = true;
  MimeMessage2 tree;
  ASSERT_TRUE(tree.loadText("Subject: x\n\nbody", log));
  for (const bool extractBody : {false, true}) {
    log.clear();
    const EmailPtr root(
        Email2::createFromMimeObject2(*new _svEmailCommon, tree, extractBody, true, log, noCerts));
    EXPECT_EQ(root->m_body.view(), "body");
    EXPECT_EQ(tree.getMimeBodyDb()->view(), extractBody ? "" : "body");
    EXPECT_TRUE(contains(log.text(), extractBody ? "extractMimeBody..." : "copyMimeBody...")) << log.text();
  }
}

TEST(Loading, stops_at_the_depth_limit_in_a_parse_tree_made_by_hand) {
  MimeMessage2 tree;
  MimeMessage2* deepest = &tree;
  for (int i = 0; i < 50'000; ++i) {
    MimeMessage2* const part = MimeMessage2::createNewObject();
    deepest->addPart(part);
    deepest = part;
  }
  const EmailPtr root(Email2::createFromMimeObject2(*new _svEmailCommon, tree, true, false, quiet, noCerts));
  int depth = 0;
  for (const Email2* node = root.get(); node->getNumParts(); node = node->getPartConst(0)) ++depth;
  EXPECT_EQ(depth, kMaxDepth);
  EXPECT_TRUE(root->m_common->m_limits.has(Limit::depth));

  std::string message;  // parsing meets the limit first
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
  EXPECT_EQ(text.view(), appended.view());
  root->getRawBodyThisPart(root->m_body);
  EXPECT_EQ(root->getNonMultipartBody3()->view(), replaced.view()) << "its own destination";
}

}  // namespace
}  // namespace mailtree
