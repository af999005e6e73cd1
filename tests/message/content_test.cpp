// The texts of a message after a change: where they are, and that nothing else is lost.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "mailtree/mailtree.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// A message with this tree, read from its bytes.
Message messageOf(const std::string& tree) {
  const EmailPtr root = buildTree(tree);
  StringBuffer text;
  LogNull log;
  ProgressContext progress(nullptr);
  root->assembleMimeBody2(text, nullptr, false, nullptr, progress, log, 0, false, true);
  return Message::parse(text.view()).value();
}

Message reread(const Message& mail) { return Message::parse(mail.toString().value()).value(); }

struct Row {
  const char* before;
  const char* afterText;
  const char* afterHtml;
};

TEST(Content, PutsTextsWhereReadersSeeThem) {
  const Row rows[] = {
      {"plain", "plain", "alternative(plain,html)"},
      {"html", "alternative(plain,html)", "html"},
      {"alternative(plain,html)", "alternative(plain,html)", "alternative(plain,html)"},
      {"mixed(html,pdf)", "mixed(alternative(plain,html),pdf)", "mixed(html,pdf)"},
      {"mixed(plain,html,pdf)", "mixed(alternative(plain,html),pdf)", "mixed(alternative(plain,html),pdf)"},
      {"mixed(plain,pdf)", "mixed(plain,pdf)", "mixed(alternative(plain,html),pdf)"},
      {"mixed(pdf)", "mixed(plain,pdf)", "mixed(html,pdf)"},
      {"related(html,png[cid=<a>])", "alternative(plain,related(html,png))", "related(html,png)"},
      {"related(alternative(plain,html),png[cid=<a>])", "related(alternative(plain,html),png)",
       "related(alternative(plain,html),png)"},
      {"mixed(related(html,png),pdf)", "mixed(alternative(plain,related(html,png)),pdf)",
       "mixed(related(html,png),pdf)"},
      {"alternative(plain,calendar)", "alternative(plain,calendar)",
       "alternative(alternative(plain,html),calendar)"},
      {"mixed(alternative(plain,html),png,plain)", "mixed(alternative(plain,html),png,plain:attachment)",
       "mixed(alternative(plain,html),png,plain)"},
  };
  for (const Row& row : rows) {
    Message text = messageOf(row.before), html = messageOf(row.before);
    ASSERT_TRUE(text.setText("New\nlines") && html.setHtml("<p>New</p>")) << row.before;
    const Message textRead = reread(text), htmlRead = reread(html);
    EXPECT_EQ(printTree(textRead.email2()), row.afterText) << row.before;
    EXPECT_EQ(printTree(htmlRead.email2()), row.afterHtml) << row.before;
    EXPECT_EQ(textRead.text(), text.text()) << row.before;
    EXPECT_TRUE(text.text().starts_with("New\nlines")) << row.before;
    EXPECT_NE(htmlRead.html().find("<p>New</p>"), std::string::npos) << row.before;
  }
}

TEST(Content, FilesAreReadBackAsTheyWereGiven) {
  const std::string inner = "Subject: inner\r\n\r\n--b\r\n.\r\nG\xC3\xBC\r\n";
  Message mail =
      Message::parse("From: a@b.example\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nhi\n--b--\n")
          .value();
  ASSERT_TRUE(mail.attach("a.eml", inner) && mail.attach("b\xC3\xBC.bin", std::string("\0\r", 2)));
  EXPECT_EQ(mail.attach("", "x").error().code, ErrorCode::badValue);
  EXPECT_EQ(mail.attach("x", "x", {.type = "multipart/mixed"}).error().code, ErrorCode::badValue);
  const Message read = reread(mail);
  const std::vector<Part> files = read.attachments();
  ASSERT_EQ(files.size(), 2U);  // messages come last
  EXPECT_EQ(files[1].type() + " " + files[1].encoding(), "message/rfc822 8bit") << "RFC 2046, 5.2.1";
  EXPECT_EQ(files[1].bytes(), inner) << "its line is not taken for the boundary";
  EXPECT_EQ(files[0].name(), "b\xC3\xBC.bin");
  EXPECT_EQ(files[0].bytes(), std::string_view("\0\r", 2));
  ASSERT_TRUE(mail.removeAttachment(mail.attachments().front()));
  EXPECT_EQ(reread(mail).attachments().size(), 1U);
}

TEST(Content, WordsAreReplacedOnceAndCounted) {
  Message mail = Message::compose(
                     {.from = "a@b.example", .to = "{n} <c@d.example>", .subject = "{n}", .text = "{n} {m}"})
                     .value();
  const std::pair<std::string, std::string> words[] = {{"{n}", "{m}"}, {"{m}", "<x>"}};
  EXPECT_EQ(mail.replaceWords(words).value(), 4);
  const Message read = reread(mail);
  EXPECT_EQ(read.subject() + "|" + read.to().front().name + "|" + read.text(), "{m}|{m}|{m} <x>\n");
}

}  // namespace
}  // namespace mailtree
