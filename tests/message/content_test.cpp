// The texts of a message after a change: where they are, and that nothing else is lost.
#include <gtest/gtest.h>

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
      {"alternative(plain,calendar)", "alternative(plain,calendar)", ""},
      {"mixed(alternative(plain,html),png,plain)", "mixed(alternative(plain,html),png,plain:attachment)", ""},
      {"mixed(alternative(plain,html),alternative(plain,html))", "", ""},
      {"digest(rfc822,rfc822)", "mixed(plain,digest(rfc822,rfc822))", ""},
      {"signed(plain,p7s)", "plain", "alternative(plain,html)"},
      {"mixed(signed(alternative(plain,html),p7s),plain)", "mixed(alternative(plain,html),plain:attachment)",
       ""},
  };
  for (const Row& row : rows) {
    Message text = messageOf(row.before), html = messageOf(row.before);
    ASSERT_TRUE(text.setText("New\nlines")) << row.before;
    ASSERT_TRUE(html.setHtml("<p>New</p>")) << row.before;
    std::printf("%s\n   text %s\n   html %s\n", row.before, printTree(reread(text).email2()).c_str(),
                printTree(reread(html).email2()).c_str());
    EXPECT_EQ(reread(text).text(), "New\nlines\n") << row.before;
    EXPECT_EQ(text.text(), "New\nlines\n") << row.before;
    EXPECT_NE(html.html().find("<p>New</p>"), std::string::npos) << row.before;
    EXPECT_EQ(reread(html).html(), html.html());
  }
}

}  // namespace
}  // namespace mailtree
