// Files that stand uuencoded in a text, and messages that are a file and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kCat = "begin 644 cat.txt\n#0V%T\n`\nend\n";
const std::string kDog = "begin 600 dog.pdf\n#1&]G\n`\nend\n";

TEST(Uuencoded, files_in_a_text_become_attachments) {
  const std::string far(49'992, 'x');
  const struct {
    const char* name;
    std::string message;
    const char* tree;
    std::string text;
  } rows[] = {
      {"one", "Content-Type: text/plain\n\nhello\n" + kCat,
       "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", "hello\n"},
      {"two, text between dropped", "\nhello\n" + kCat + "lost\n" + kDog,
       "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment,pdf[name=dog.pdf,file=dog.pdf]:attachment)",
       "hello\n"},
      {"no text", "\n" + kCat, "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", ""},
      {"without a type, marked", "X-MS-Has-Attach: YES\n\n<<a>>\nbegin 640 cat.txt\n#0V%T\n`\nend\n",
       "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", "<<a>>\n"},
      {"without a type, mode unknown", "\nbegin 640 cat.txt\n#0V%T\n`\nend\n", "none",
       "begin 640 cat.txt\n#0V%T\n`\nend\n"},
      {"encoded as a whole",
       "Content-Type: image/png\nContent-Transfer-Encoding: x-uue\n\nbegin 755 a\n#0V%T\n`\nend\n",
       "png[name=a,file=a]", "Cat"},
      {"encoded and cut short",
       "Content-Type: image/png\nContent-Transfer-Encoding: x-uue\n\nbegin 755 a\n#0V%T\n\x80\n", "png",
       "begin 755 a\n#0V%T\n\x80\n"},
      {"prose", "\nWe begin 644 things\n", "none", "We begin 644 things\n"},
      {"block that does not decode", "\nbegin 644 a\n\x01\x02\nend\n", "none",
       "begin 644 a\n\x01\x02\nend\n"},
      {"beyond what is looked at", "\n" + far + "\n" + kCat, "none", far + "\n" + kCat},
      {"prose before it", "\nWe begin 6 days later.\nLost.\n" + kCat,
       "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", "We "},
      {"a page", "Content-Type: text/html\n\n<p>hello\n" + kCat,
       "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", "<p>hello\n"},
      {"attached file", "Content-Type: text/plain\nContent-Disposition: attachment; filename=c.uu\n\n" + kCat,
       "mixed(plain,plain[file=c.uu]:attachment)", ""},
      {"latin-1 before it", "\ncaf\xE9\n" + kCat, "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)",
       "café\n"},
      {"latin-1 name", "\nbegin 644 caf\xE9.txt\n#0V%T\n`\nend\n",
       "mixed(plain,plain[name=café.txt,file=café.txt]:attachment)", ""},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = load(row.message);
    EXPECT_EQ(printTree(mail, TreeDetail::names), row.tree) << row.name;
    const Email2& body = mail->getNumParts() ? *mail->getPart(0) : *mail;
    EXPECT_TRUE(body.m_body.view() == row.text) << row.name;
    EXPECT_EQ(mail->m_repairs.has(Repair::uuencoded),
              contains(row.tree, "mixed(plain,") && contains(row.tree, "name="))
        << row.name;
    const std::string once = write(*mail);
    EXPECT_EQ(write(*load(once)), once) << row.name;
  }
}

TEST(Uuencoded, more_files_than_a_message_may_have_parts_stay_in_the_text) {
  std::string text;
  for (int i = 0; i < kMaxParts; ++i) text += "begin 644 a\nend\n";
  const EmailPtr mail = load("Content-Type: text/plain\n\n" + text);
  EXPECT_EQ(mail->m_body.view(), text);
  EXPECT_TRUE(mail->m_common->m_limits.has(Limit::parts));
}

TEST(Uuencoded, what_was_done_is_logged) {
  const struct {
    const char* fields;
    const char* line;
  } rows[] = {
      {"Content-Type: text/plain\n", "UU decoding MIME body and adding as attachment...\n"},
      {"", "UU decoding MIME body and adding as attachment..\n"},
      {"\nWe begin 6 days later.\n", "UU decoding MIME body and adding as attachment..\n"},
      {"X-MS-Has-Attach: yes\n", "UU decoding MIME body and adding as attachment.\n"},
  };
  for (const auto& row : rows) {
    LogMemory log;
    log.m_verboseLogging = true;
    StringBuffer mime(std::string(row.fields) + "\n<<\n" + kCat + "behind\n");
    SystemCerts certs;
    const EmailPtr mail(
        Email2::createFromMimeText2(*new _svEmailCommon, mime, true, false, certs, log, false));
    EXPECT_THAT(log.text(), HasSubstr(row.line)) << row.fields;
    EXPECT_THAT(log.text(), HasSubstr("left out")) << row.fields;
  }
}

TEST(AttachmentOnly, message_gets_an_empty_text_and_its_file) {
  const std::string fields =
      "Content-Type: application/x-odd\nContent-Disposition: attachment; filename=a.pdf\n";
  const struct {
    std::string header;
    const char* tree;
  } rows[] = {
      {"X-MS-Has-Attach: yes\n" + fields, "mixed(pdf[name=a.pdf,file=a.pdf]:attachment)"},
      {fields, "application/x-odd[file=a.pdf]:attachment"},
      {"X-MS-Has-Attach: no\n" + fields, "application/x-odd[file=a.pdf]:attachment"},
      {"X-MS-Has-Attach: yes\nContent-Type: application/pkcs7-mime\nContent-Disposition: attachment; "
       "filename=a.p7m\n",
       "application/pkcs7-mime[file=a.p7m]:attachment"},
      {"X-MS-Has-Attach: yes\nContent-Type: application/pdf; name=a.pdf\n", "pdf[name=a.pdf,file=a.pdf]"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = loadPop3(crlf(row.header + "\n%PDF\n"));
    EXPECT_EQ(printTree(mail, TreeDetail::names), row.tree) << row.header;
    const Email2& file = mail->getNumParts() ? *mail->getPart(0) : *mail;
    EXPECT_EQ(file.m_body.view(), "%PDF\r\n") << row.header;
  }
}

std::string splitOutlook(std::string_view text, std::string& tree, const char* charset = "") {
  const EmailPtr mail = buildTree("plain");
  mail->m_common->m_charset.setByName(charset);
  StringBuffer pasted(text);
  LogNull log;
  const bool split = Email2::splitOutlookHtmlUU(pasted, *mail, log);
  tree = printTree(mail, TreeDetail::names);
  StringBuffer plain;
  mail->getPlainTextBodyUtf8(*mail, plain, log);
  return split ? plain.extractString() : "(not split)";
}

TEST(Outlook, pages_and_files_pasted_into_a_text_are_told_apart) {
  const std::string page = "begin 666 page.htm\n#/'`^\nend\n";
  const struct {
    std::string text;
    const char* charset;
    const char* tree;
    const char* plain;
  } rows[] = {
      {"just words", "", "plain", "(not split)"},
      {"  words \n\n" + kCat, "", "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", "words"},
      {"words\n" + page + kCat, "",
       "mixed(alternative(plain,html),plain[name=cat.txt,file=cat.txt]:attachment)", "words"},
      {"words\n" + kCat + kDog, "",
       "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment,pdf[name=dog.pdf,file=dog.pdf]:attachment)",
       "words"},
      // a kind that is preferred is looked for first, wherever it stands; what is before it is text
      {kCat + page, "", "alternative(plain,html)", "begin 644 cat.txt\n#0V%T\n`\nend"},
      {"caf\xE9\n" + kCat, "iso-8859-1", "mixed(plain,plain[name=cat.txt,file=cat.txt]:attachment)", "café"},
      {"words\nbegin 644 cat.txt\n#0V%T\n", "", "plain", "words"},  // no end: nothing taken out
  };
  for (const auto& row : rows) {
    std::string tree;
    EXPECT_EQ(splitOutlook(row.text, tree, row.charset), row.plain) << row.text;
    EXPECT_EQ(tree, row.tree) << row.text;
  }
}

TEST(Outlook, many_blocks_take_time_in_proportion) {
  std::string text;
  for (int i = 0; i < 20'000; ++i) text += kDog;  // each searched for three other kinds first
  std::string tree;
  splitOutlook(text, tree);
  EXPECT_THAT(tree, Not(HasSubstr("cat")));
}

}  // namespace
}  // namespace mailtree
