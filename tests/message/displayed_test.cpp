#include "mailtree/message/displayed.h"

#include <gtest/gtest.h>

#include "mailtree/message/Message.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// "text ROWS; html ROWS; items ROWS; files ROWS", without the lists that are empty, or html that is the
/// text.
std::string seen(Email2& root) {
  const Displayed display = displayedIn(outlineOf(root));
  std::string out;
  const auto add = [&out](const char* what, const std::vector<int>& rows) {
    if (!rows.empty()) out.append(out.empty() ? "" : "; ").append(what);
    for (const int row : rows) out += " " + std::to_string(row);
  };
  add("text", display.textBody);
  if (display.htmlBody != display.textBody) add("html", display.htmlBody);
  add("items", display.inlineItems);
  add("files", display.attachments);
  return out + (display.notShown ? "; hidden " + std::to_string(display.notShown) : "");
}

TEST(Displayed, DividesAMessageIntoWhatIsSeenAndFiles) {
  expectOfTrees(seen, R"(
    plain | text 0
    pdf | files 0
    png | text 0; files 0
    rfc822 | text 0; files 0
    mixed(plain,png,plain) | text 1 2 3; files 2
    mixed(plain,plain[name=a.txt],plain:attachment) | text 1; files 3 2
    mixed(none,html) | text 1 2
    alternative(plain,html) | text 1; html 2
    alternative(plain[body= ],html) | text 2
    alternative(plain,plain,html,html) | text 1; html 4; hidden 2
    alternative(plain,calendar,html) | text 1; html 3; files 2
    alternative(plain,mixed(html,pdf,plain)) | text 1; html 3 5; files 4
    alternative(mixed(plain,png),html) | text 2 3; html 4; files 3
    related(html[body=cid:a],png[cid=<a>],png[cid=<b>]) | text 1; items 2; files 3; hidden 1
    alternative(plain,related(html[body=cid:a],png[cid=<a>])) | text 1; html 3; items 4; hidden 1
    related(png,html) | text 2; files 1
    mixed(signed(plain,application/pgp-signature),plain) | text 2 4
    mixed(signed(plain,p7s),plain) | text 2 4
    mixed(plain,digest(rfc822,html),rfc822) | text 1 3 4; files 3 5
    report(plain,delivery,rfc822) | text 1; files 2 3
    multipart/x-new(plain,plain) | text 1 2
    multipart/x-new[body=text] | text 0
    mixed(text/enriched,png,text/enriched) | text 1 2 3; files 2
  )");
}

struct Row {
  const char* message;
  const char* text;
};

TEST(Displayed, GivesTextAsItIsRead) {
  const Row rows[] = {
      {"X: y\n\none\rtwo\r\nthree\xFF\n", "one\ntwo\nthree\xC3\xBF\n"},
      {"Content-Type: text/plain; format=flowed\n\n> one \n> two\n", "> one two\n"},
      {"Content-Type: text/html\n\n<p>a &amp; b<script>x</script>", "a & b\n"},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: "
       "text/html\n\n<b>page</b>\n--b\n\nfooter\n--b--\n",
       "page\n\nfooter"},
      {"Content-Type: multipart/digest; boundary=b\n\n--b\n\nFrom: a@b.example\nSubject: "
       "One\n\nfirst\n--b--\n",
       "From: a@b.example\nSubject: One\n\nfirst"},
  };
  for (const Row& row : rows) EXPECT_EQ(Message::parse(row.message)->text(), row.text) << row.message;
}

TEST(Displayed, GivesHtmlOnlyWhenThereIsSome) {
  const char* const mixed =
      "Content-Type: multipart/mixed; boundary=b\n\n--b\n\n<1>\n--b\nContent-Type: "
      "text/html\n\n<b>2</b>\n--b--\n";
  EXPECT_EQ(Message::parse(mixed)->html(), "<div style=\"white-space: pre-wrap\">&lt;1&gt;</div>\n<b>2</b>");
  EXPECT_EQ(Message::parse("\n\ntext")->html(), "");
}

TEST(Displayed, PreviewsWhatIsNew) {
  const Result<Message> message = Message::parse("\n\n> old\n\n Gr\xC3\xBC\xC3\x9F  Gott,\nhere");
  const char* const expected[] = {"", "G", "Gr", "Gr\xC3\xBC", "Gr\xC3\xBC\xC3\x9F", "Gr\xC3\xBC\xC3\x9F"};
  for (std::size_t length = 0; length < std::size(expected); ++length)
    EXPECT_EQ(message->preview(length), expected[length]) << "no blank at the end";
  EXPECT_EQ(message->preview(12), "Gr\xC3\xBC\xC3\x9F Gott, h");
}

}  // namespace
}  // namespace mailtree
