// References to the images of a page.
#include <gtest/gtest.h>

#include "mailtree/mime/html/CidReferences.h"

namespace mailtree {
namespace {

TEST(CidReferences, are_pointed_at_content_ids_and_nothing_else_changes) {
  const std::vector<CidTarget> targets = {{"a.png", "A@x"}, {"my (1) é&.png", "B@x"}, {"100%.png", "C/<x"}};
  const struct {
    const char *html, *expected;
  } rows[] = {
      {"<img src=\"cid:a.png\">", "<img src=\"cid:A@x\">"},
      {"<IMG SRC=CID:a.png alt=x>", "<IMG SRC=CID:A@x alt=x>"},
      {"<img src='cid:my (1) é&.png'>", "<img src='cid:B@x'>"},
      {"<img src=\"cid:my%20(1)%20%C3%A9&amp;.png\">", "<img src=\"cid:B@x\">"},
      {"<img src=\"cid:my%20%281%29%20%c3%a9%26.png\">", "<img src=\"cid:B@x\">"},
      {"<img src=\"cid:100%.png\"><img src=\"cid:100%25.png\">",
       "<img src=\"cid:C%2F%3Cx\"><img src=\"cid:C%2F%3Cx\">"},
      {"<td style=\"background:url(cid:a.png)\">", "<td style=\"background:url(cid:A@x)\">"},
      {"<td style=\"background:url(&quot;cid:a.png&quot;)\">",
       "<td style=\"background:url(&quot;cid:A@x&quot;)\">"},
      {"<img srcset=\"cid:a.png 1x, cid:a.png 2x\">", "<img srcset=\"cid:A@x 1x, cid:A@x 2x\">"},
      {"<use xlink:href=\"cid:a.png#part\"/>", "<use xlink:href=\"cid:A@x#part\"/>"},
      {"<style>p { background: url('cid:a.png') }</style>",
       "<style>p { background: url('cid:A@x') }</style>"},
      {"<!--[if mso]><v:fill src=\"cid:a.png\"/><![endif]-->",
       "<!--[if mso]><v:fill src=\"cid:A@x\"/><![endif]-->"},
      // Other parts, other schemes, and text that only looks like a reference.
      {"<img src=\"cid:a.png@host\"><img src=\"cid:a.png2\"><img src=\"cid:xa.png\"><img src=\"cid:A.PNG\">",
       nullptr},
      {"<img src=\"acid:a.png\"><a href=\"http://x/?q=cid:a.png\">", nullptr},
      {"<p title=\"cid:a.png\">cid:a.png</p><script>'cid:a.png'</script>", nullptr},
      {"<img src=\"cid:", nullptr},
      {"<img src=\"cid:\"><img src=\"cid:%\"><img src=\"cid:&;\">", nullptr},
  };
  for (const auto& row : rows) {
    std::string out = "left over";
    pointCidReferences(row.html, targets, out);
    EXPECT_EQ(out, row.expected ? row.expected : row.html) << row.html;
  }
}

}  // namespace
}  // namespace mailtree
