// Files uuencoded in a text, and messages that are a file and nothing else.
#include "tests/email/cases.h"

namespace mailtree {
namespace {

const std::string kCat = "begin 644 cat.txt\n#0V%T\n`\nend\n";
const std::string kDog = "begin 600 dog.pdf\n#1&]G\n`\nend\n";
const std::string kCatPart = "plain[name=cat.txt,file=cat.txt]:attachment";
const std::string kDogPart = "pdf[name=dog.pdf,file=dog.pdf]:attachment";

TEST(Uuencoded, files_in_a_text_become_attachments) {
  const std::string far = "\n" + std::string(49'992, 'x') + "\n" + kCat;
  const std::string withCat = "mixed(plain," + kCatPart + ")";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"\nhello\n" + kCat + "lost\n" + kDog, "mixed(plain," + kCatPart + "," + kDogPart + ")", "hello\n"},
      {"\n" + kCat, withCat, ""},
      {"X-MS-Has-Attach: YES\n\n<<a>>\nbegin 640 cat.txt\n#0V%T\n`\nend\n", withCat, "<<a>>\n"},
      {"\nbegin 640 a\n#0V%T\n`\nend\n", "none", "begin 640 a\n#0V%T\n`\nend\n"},  // unknown mode
      {"Content-Type: image/png\nContent-Transfer-Encoding: x-uue\n\nbegin 755 a\n#0V%T\n`\nend\n",
       "png[name=a,file=a]", "Cat"},
      {"Content-Type: image/png\nContent-Transfer-Encoding: x-uue\n\nbegin 755 a\n#0V%T\n\x80\n", "png",
       "begin 755 a\n#0V%T\n\x80\n"},  // cut short
      {"\nWe begin 644 things\n", "none", "We begin 644 things\n"},
      {"\nbegin 644 a\n\x01\x02\nend\n", "none", "begin 644 a\n\x01\x02\nend\n"},
      {far, "none", far.substr(1)},  // beyond what is looked at
      {"\nWe begin 6 days later.\nLost.\n" + kCat, withCat, "We "},
      {"Content-Type: text/html\n\n<p>hello\n" + kCat, withCat, "<p>hello\n"},
      {"Content-Type: text/plain\nContent-Disposition: attachment; filename=c.uu\n\n" + kCat,
       "mixed(plain,plain[file=c.uu]:attachment)", ""},
      {"\ncaf\xE9\n" + kCat, withCat, "café\n"},
      {"\nbegin 644 caf\xE9.txt\n#0V%T\n`\nend\n",
       "mixed(plain,plain[name=café.txt,file=café.txt]:attachment)", ""},
  };
  for (const auto& [message, tree, text] : rows) {
    const EmailPtr mail = load(message);
    EXPECT_EQ(printTree(mail, TreeDetail::names), tree) << message.substr(0, 200);
    const Email2& body = mail->getNumParts() ? *mail->getPart(0) : *mail;
    EXPECT_TRUE(body.m_body.view() == text) << message.substr(0, 200);
    EXPECT_EQ(mail->m_repairs.has(Repair::uuencoded), contains(tree, "mixed(") && contains(tree, "name="));
    const std::string once = write(*mail);
    EXPECT_EQ(write(*load(once)), once) << message.substr(0, 200);
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
  for (const auto& [fields, dots] : {std::pair("Content-Type: text/plain\n", "..."), std::pair("", ".."),
                                     std::pair("X-MS-Has-Attach: yes\n", ".")}) {
    LogMemory log;
    log.m_verboseLogging = true;
    StringBuffer mime(std::string(fields) + "\n<<\n" + kCat + "behind\n");
    SystemCerts certs;
    EmailPtr(Email2::createFromMimeText2(*new _svEmailCommon, mime, true, false, certs, log, false));
    EXPECT_TRUE(contains("|" + said(log),
                         "|UU decoding MIME body and adding as attachment" + std::string(dots) + "|"));
    EXPECT_TRUE(contains(said(log), "|Text between or after uuencoded files was left out.|")) << fields;
  }
}

TEST(AttachmentOnly, message_gets_an_empty_text_and_its_file) {
  for (const auto& [header, tree] : rowsOf<2>(R"(
    yes\nContent-Type: a/odd\nContent-Disposition: attachment; filename=a.pdf    | mixed(pdf:attachment)
    no\nContent-Type: a/odd\nContent-Disposition: attachment; filename=a.pdf     | a/odd:attachment
    yes\nContent-Type: a/pkcs7-mime\nContent-Disposition: attachment; filename=a | a/pkcs7-mime:attachment
    yes\nContent-Type: application/pdf; name=a.pdf                               | pdf)")) {
    const EmailPtr mail = loadPop3(crlf("X-MS-Has-Attach: " + header + "\n\n%PDF\n"));
    EXPECT_EQ(printTree(mail), tree) << header;
    const Email2& file = mail->getNumParts() ? *mail->getPart(0) : *mail;
    EXPECT_EQ(file.m_body.view(), "%PDF\r\n") << header;
  }
}

/// The tree, and the plain text.
std::string splitOutlook(std::string_view text, const char* charset = "") {
  const EmailPtr mail = buildTree("plain[body=old]");
  mail->m_common->m_charset.setByName(charset);
  StringBuffer pasted(text), plain;
  const bool split = Email2::splitOutlookHtmlUU(pasted, *mail, quiet);
  mail->getPlainTextBodyUtf8(*mail, plain, quiet);
  EXPECT_NE(split, plain.view() == "old");
  return printTree(mail, TreeDetail::names) + " " + plain.extractString();
}

TEST(Outlook, pages_and_files_pasted_into_a_text_are_told_apart) {
  const std::string page = "begin 666 page.htm\n#/'`^\nend\n";
  const std::tuple<std::string, const char*, std::string> rows[] = {
      {"just words", "", "plain old"},
      {"  words \n\n" + kCat + kDog, "", "mixed(plain," + kCatPart + "," + kDogPart + ") words"},
      {"words\n" + page + kCat, "", "mixed(alternative(plain,html)," + kCatPart + ") words"},
      // a kind that is preferred is looked for first, wherever it is; what is before it is text
      {kCat + page, "", "alternative(plain,html) begin 644 cat.txt\n#0V%T\n`\nend"},
      {"caf\xE9\n" + kCat, "iso-8859-1", "mixed(plain," + kCatPart + ") café"},
      {"words\nbegin 644 cat.txt\n#0V%T\n", "", "plain words"},  // no end: nothing taken out
  };
  for (const auto& [text, charset, expected] : rows) EXPECT_EQ(splitOutlook(text, charset), expected) << text;
}

TEST(Outlook, many_blocks_take_time_in_proportion) {
  std::string text = kDog, tree = "mixed(" + kDogPart;
  for (int i = 1; i < 2'000; ++i) {
    text += kDog;  // each searched for three other kinds first
    tree += "," + kDogPart;
  }
  EXPECT_EQ(splitOutlook(text), tree + ") ");
}

}  // namespace
}  // namespace mailtree
