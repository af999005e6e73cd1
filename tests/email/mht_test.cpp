#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;

EmailPtr mhtCopy(Email2& mail, const char* html = "") {
  LogNull log;
  StringBuffer text(html);
  return EmailPtr(mail.cloneToMht2(text, log));
}

std::string bodyOf(const EmailPtr& mail) { return std::string(mail->findHtmlPart()->m_body.view()); }

TEST(CloneToMht, drops_attachments_and_makes_html_of_lone_text) {
  const struct {
    const char *tree, *html, *expected;
  } rows[] = {
      {"html", "", "html"},
      {"plain", "", "html"},
      {"alternative(plain,html)", "", "alternative(plain,html)"},
      {"alternative(plain)", "", "alternative(plain,html)"},
      {"alternative(calendar)", "", "alternative(calendar)"},
      {"mixed(html,pdf:attachment)", "", "mixed(html)"},
      {"mixed(plain,pdf:attachment)", "",
       "mixed(plain)"},  // no page for what is neither text nor alternatives
      {"mixed(html,png[cid=<i@x>]:attachment,pdf[cid=<p@x>]:attachment)", "<img src='cid:i@x'>",
       "mixed(html,png:attachment)"},
      {"mixed(html,png[cid=<>]:attachment)", "<img src='cid:'>", "mixed(html)"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.tree);
    const std::string before = printTree(mail);
    EXPECT_EQ(printTree(mhtCopy(*mail, row.html)), row.expected) << row.tree;
    EXPECT_EQ(printTree(mail), before) << row.tree;
  }
}

TEST(CloneToMht, deliberately_does_not_escape_text) {
  const EmailPtr single = mhtCopy(*load("Content-Type: text/plain; charset=utf-8\r\n\r\na<b & \xC3\xA4\nc"));
  EXPECT_THAT(bodyOf(single), testing::StartsWith("<html><head/><META "));
  EXPECT_THAT(bodyOf(single), HasSubstr("charset=utf-8\"><body><pre>a<b & ä\r\nc</pre></body></html>"));

  // Deliberately without a META tag.
  const EmailPtr alternative = mhtCopy(*buildTree("alternative(plain[body=a<b])"));
  EXPECT_EQ(bodyOf(alternative), "<html><head/><body><pre>a<b</pre></body></html>");
}

TEST(CloneToMht, meta_tag_names_the_charset_in_which_the_page_is_written) {
  for (const std::string charset : {"utf-8", "iso-8859-1", "windows-1251", "us-ascii"}) {
    const EmailPtr mail = mhtCopy(*load("Content-Type: text/plain; charset=" + charset + "\r\n\r\nabc\r\n"));
    EXPECT_THAT(bodyOf(mail), HasSubstr("charset=" + charset + "\"")) << charset;
    EXPECT_THAT(field(*mail, "Content-Type"), HasSubstr(charset)) << charset;
  }
}

TEST(CloneToMht, logs_what_it_found) {
  LogMemory log;
  StringBuffer html;
  EmailPtr(buildTree("alternative(plain)")->cloneToMht2(html, log));
  EXPECT_THAT(log.text(),
              HasSubstr("  MultipartAlternative:\n    htmlAltIndex: -1\n    plainTextAltIndex: 0\n"));
  log.clear();
  EmailPtr(buildTree("html")->cloneToMht2(html, log));
  EXPECT_THAT(log.text(), HasSubstr("  NotMultipartAlternative:\n    contentType: text/html\n"));
}

TEST(CloneToMht, a_dead_node_gives_nothing) {
  const EmailPtr mail = buildTree("plain");
  const Killed dead(*mail);
  LogMemory log;
  StringBuffer html;
  EXPECT_EQ(mail->cloneToMht2(html, log), nullptr);
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
