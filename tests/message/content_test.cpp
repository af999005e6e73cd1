// The texts of a message after a change: where they are, and that nothing else is lost.
#include <gtest/gtest.h>

#include <functional>
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
      {"mixed(plain,plain)", "plain", "alternative(mixed(plain,plain),html)"},
      {"mixed(html,html)", "alternative(plain,mixed(html,html))", "html"},
      {"mixed(plain,signed(plain,p7s),plain)", "plain", "alternative(mixed(plain,plain,plain),html)"},
      {"mixed(pdf)", "mixed(plain,pdf)", "mixed(html,pdf)"},
      {"related(html,png[cid=<a>])", "alternative(plain,related(html,png))", "related(html,png)"},
      {"related(alternative(plain,html),png[cid=<a>])", "related(alternative(plain,html),png)",
       "related(alternative(plain,html),png)"},
      {"mixed(related(html,png),pdf)", "mixed(alternative(plain,related(html,png)),pdf)",
       "mixed(related(html,png),pdf)"},
      {"alternative(plain,calendar)", "alternative(plain,calendar)",
       "alternative(alternative(plain,html),calendar)"},
      {"signed(plain,p7s)", "plain", "alternative(plain,html)"},
      {"digest(rfc822,rfc822)", "mixed(plain,digest(rfc822,rfc822))", "mixed(html,digest(rfc822,rfc822))"},
      {"mixed(alternative(plain,html),alternative(plain,html))", "alternative(plain,mixed(html,html))",
       "alternative(mixed(plain,plain),html)"},
      {"mixed(alternative(plain,html),png,plain)", "mixed(alternative(plain,html),png,plain:attachment)",
       "mixed(alternative(plain,html),png,plain:attachment)"},
  };
  for (const Row& row : rows) {
    Message text = messageOf(row.before), html = messageOf(row.before);
    ASSERT_TRUE(text.setText("New\nlines") && html.setHtml("<p>New</p>")) << row.before;
    const Message textRead = reread(text), htmlRead = reread(html);
    EXPECT_EQ(printTree(textRead.email2()), row.afterText) << row.before;
    EXPECT_EQ(printTree(htmlRead.email2()), row.afterHtml) << row.before;
    EXPECT_EQ(textRead.text(), text.text()) << row.before;
    EXPECT_TRUE(text.text().starts_with("New\nlines")) << row.before;
    EXPECT_TRUE(htmlRead.html().starts_with("<p>New</p>")) << row.before;
  }
}

TEST(Content, PutsATextWhereThereIsNothing) {
  for (const std::string type :
       {"multipart/signed; boundary=b", "text/plain", "text/html\r\nContent-Disposition: attachment"}) {
    Message text = Message::parse("Content-Type: " + type + "\r\n\r\n").value();
    Message html = text.clone().value();
    ASSERT_TRUE(text.setText("New") && html.setHtml("<p>New")) << type;
    EXPECT_EQ(text.text() + html.html(), "New\n<p>New") << type;
  }
  // Pictures of the HTML to come are not taken from beside the text.
  Message mail = messageOf("mixed(related(png,plain),pdf)");
  EXPECT_TRUE(mail.setHtml("<p>New"));
  EXPECT_EQ(mail.html(), "<p>New");
  Message signature = Message::parse("Content-Type: application/pgp-signature\r\n\r\nx").value();
  EXPECT_TRUE(signature.removeAttachment(signature.attachments().at(0)));
  EXPECT_TRUE(signature.attachments().empty());
}

TEST(Content, TextsAreRemovedAndPutBefore) {
  const Calendar calendar{"REQUEST", "BEGIN:VCALENDAR\r\nEND:VCALENDAR\r\n"};
  const auto noText = [](Message& mail) { return mail.setText(""); };
  const auto noHtml = [](Message& mail) { return mail.setHtml(""); };
  const auto prepend = [](Message& mail) { return mail.prependText("<New>"); };
  const auto invite = [&](Message& mail) { return mail.setCalendar(calendar); };
  const struct {
    const char* before;
    std::function<Result<void>(Message&)> change;
    const char* after;
    const char* text;
  } rows[] = {{"plain", noText, "plain", ""},
              {"mixed(plain,pdf)", noText, "mixed(pdf)", ""},
              {"alternative(plain,html)", noText, "html", "html\n"},
              {"alternative(plain,related(html,png[cid=<a>]))", noHtml, "mixed(plain,png)", "plain"},
              {"related(html,png[cid=<a>])", noHtml, "mixed(png)", ""},
              {"alternative(plain,html)", prepend, "alternative(plain,html)", "<New>\nplain"},
              {"html", prepend, "html", "<New>\n\nhtml\n"},
              {"pdf", prepend, "mixed(plain,pdf)", "<New>\n"},
              {"signed(plain,p7s)", prepend, "plain", "<New>\nplain"},
              {"mixed(plain,pdf)", invite, "mixed(alternative(plain,calendar),pdf)", "plain"},
              {"digest(rfc822)", invite, "mixed(calendar,digest(rfc822))",
               "BEGIN:VCALENDAR\nEND:VCALENDAR\n\n\nrfc822"},
              {"alternative(plain,calendar)", invite, "alternative(plain,calendar)", "plain"}};
  for (const auto& row : rows) {
    Message mail = messageOf(row.before);
    ASSERT_TRUE(row.change(mail)) << row.before;
    const Message read = reread(mail);
    EXPECT_EQ(printTree(read.email2()), row.after) << row.before;
    EXPECT_EQ(read.text(), row.text) << row.before;
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
  const std::string unixMessage = "Content-Transfer-Encoding:\n Binary\n\na\nb\n";
  ASSERT_TRUE(mail.attach("c.eml", unixMessage));
  EXPECT_EQ(reread(mail).attachments().back().bytes(), unixMessage) << "its LF may be data";
  ASSERT_TRUE(mail.removeAttachment(mail.attachments().back()));
  ASSERT_TRUE(mail.removeAttachment(mail.attachments().front()));
  EXPECT_EQ(reread(mail).attachments().size(), 1U);
}

TEST(Content, FilesOfAPageAreReferredToByNameByIdOrByLocation) {
  Message mail = Message::compose({.html = "<img src='cid:a.png'><img src='cid:own@x'>"}).value();
  const std::string id = mail.addInline("a.png", "A").value();
  EXPECT_EQ(mail.addInline("b.png", "B", {.contentId = "own@x"}).value(), "own@x");
  EXPECT_EQ(mail.addInline("own@x", "C", {.location = "img/c.png"}).value(), "");
  const Message read = reread(mail);
  EXPECT_EQ(read.html(), "<img src='cid:" + id + "'><img src='cid:own@x'>")
      << "only names without a part change";
  EXPECT_EQ(read.parts().back().location(), "img/c.png");
  EXPECT_EQ(read.inlineItems().size(), 2U);
  for (const InlineOptions& wrong : {InlineOptions{.contentId = "<a>"}, InlineOptions{.location = "a\nb"},
                                     InlineOptions{.contentId = "a@x", .location = "a"}})
    EXPECT_EQ(mail.addInline("d.png", "D", wrong).error().code, ErrorCode::badValue);
}

TEST(Content, PartsAreRemovedTogetherWithAllThatIsInThem) {
  const struct {
    const char* before;
    std::vector<const char*> removed;
    const char* after;
  } rows[] = {
      {"mixed(plain,png,pdf)", {"1.2", "1.3"}, "plain"},
      {"mixed(plain,mixed(png,png),pdf)", {"1.2", "1.2.1"}, "mixed(plain,pdf)"},
      {"mixed(signed(mixed(plain,png),p7s),pdf)", {"1.1.1.2"}, "mixed(plain,pdf)"},
      {"signed(plain,p7s)", {"1.2"}, "plain"},
      {"alternative(plain,related(html,png))", {"1.2"}, "plain"},
  };
  for (const auto& row : rows) {
    Message mail = messageOf(row.before);
    std::vector<Part> parts;
    for (const char* const id : row.removed) parts.push_back(mail.part(id).value());
    ASSERT_TRUE(mail.removeParts(parts)) << row.before;
    EXPECT_EQ(printTree(reread(mail).email2()), row.after) << row.before;
    EXPECT_EQ(mail.removeParts({{mail.root()}}).error().code, ErrorCode::badValue);
  }
}

TEST(Content, TheCharsetAskedForIsUsedWhereTheTextFits) {
  const struct {
    const char *charset, *text, *label;
  } rows[] = {{"koi8-r", "Привет", "koi8-r"}, {"koi8-r", "Gruß", "utf-8"}, {"koi8-r", "plain", "us-ascii"}};
  for (const auto& row : rows) {
    Message mail;
    ASSERT_TRUE(mail.setCharset(row.charset));
    ASSERT_TRUE(mail.setText(row.text));
    EXPECT_EQ(reread(mail).root().charset(), row.label) << row.text;
  }
  for (const char* const wrong : {"", "nope", "utf-16", "utf-7"})
    EXPECT_EQ(Message().setCharset(wrong).error().code, ErrorCode::badValue) << wrong;
}

TEST(Content, ANewMessageHasTheTextThatWasGivenForItsPage) {
  EXPECT_EQ(Message::compose({.text = "a\n", .html = "<p>b"})->text(), "a\n");
  EXPECT_EQ(Message::compose({.html = "<p>b"})->text(), "b\n");
}

TEST(Content, WordsAreReplacedOnceAndCounted) {
  Message mail = Message::compose(
                     {.from = "a@b.example", .to = "{n} <c@d.example>", .subject = "{n}", .text = "{n} {m}"})
                     .value();
  const std::pair<std::string, std::string> words[] = {{"{n}", "{m}"}, {"{m}", "<x>"}};
  EXPECT_EQ(mail.replaceWords(words).value(), 4);
  const Message read = reread(mail);
  EXPECT_EQ(read.subject() + "|" + read.to().front().name + "|" + read.text(), "{m}|{m}|{m} <x>\n");
  ASSERT_TRUE(mail.setHtml("<p id='{m}' onclick='{m}'><a href={m}>{m}</a><{m}><!--{m}--><style>{m}</style>"));
  EXPECT_EQ(mail.replaceWords(words).value(), 7);
  EXPECT_NE(mail.html().find("<p id='&lt;x&gt;' onclick='{m}'><a href=\"&lt;x&gt;\">&lt;x&gt;</a>"
                             "<&lt;x&gt;><!--{m}--><style>{m}</style>"),
            std::string::npos)
      << mail.html();
  Message half = messageOf("mixed(signed(plain,p7s),plain[body={n}])");
  EXPECT_EQ(half.replaceWords(words).value(), 1);
  EXPECT_EQ(printTree(reread(half).email2()), "mixed(signed(plain,p7s),plain)") << "it was not changed";
}

}  // namespace
}  // namespace mailtree
