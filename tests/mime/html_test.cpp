#include "mailtree/mime/Html.h"

#include "mailtree/mime/CidReferences.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

std::string completed(std::string_view html) {
  StringBuffer text(html);
  const bool changed = _svHtmlHelp::ensureStructure(text);
  EXPECT_EQ(changed, text.view() != html) << html;
  return std::string(text.view());
}

std::string charsetOf(std::string_view html) {
  StringBuffer out("old");
  const bool found = _svHtmlHelp::getCharset(StringBuffer(html), out);
  EXPECT_EQ(found, !out.isEmpty()) << html;
  return out.getString();
}

std::string withCharset(std::string_view html, const char* charset) {
  StringBuffer text(html);
  _svHtmlHelp::addCharsetMetaTag(text, charset, quiet);
  return text.getString();
}

std::string withoutCharset(std::string_view html) {
  StringBuffer text(html);
  _svHtmlHelp::removeCharsetMetaTag(text, quiet);
  return std::string(text.view());
}

TEST(HtmlStructure, AddsWhatIsMissingAndNothingTwice) {
  const Row rows[] = {
      {"<HTML\nlang=en><HEAD/><BODY class='a>b'>x", "<HTML\nlang=en><HEAD/><BODY class='a>b'>x"},
      {"", "<html><head></head><body></body></html>"},
      {"Hello <b>you</b>", "<html><head></head><body>Hello <b>you</b></body></html>"},
      {"<!DOCTYPE html>\n<p>x", "<!DOCTYPE html><html><head>\n</head><body><p>x</body></html>"},
      {"\uFEFF<?xml version='1.0'?><!doctype html><p>x",
       "\uFEFF<?xml version='1.0'?><!doctype html><html><head></head><body><p>x</body></html>"},
      {"<html><p>x</p></html>", "<html><head></head><body><p>x</p></body></html>"},
      {"<html><body>x</body></html>", "<html><head></head><body>x</body></html>"},
      {"<html><title>a<b</title><style>p{}</style><p>x</html>",
       "<html><head><title>a<b</title><style>p{}</style></head><body><p>x</body></html>"},
      {"<html><title>t</title></head><body>x</body></html>",
       "<html><head><title>t</title></head><body>x</body></html>"},
      {"<head><title>t</title></head>x", "<html><head><title>t</title></head><body>x</body></html>"},
      {"<html><head><title>t</title><p>x", "<html><head><title>t</title><body><p>x</body>"},
      {"<html><head><base><noscript><p></noscript></head>x</html>",
       "<html><head><base><noscript><p></noscript></head><body>x</body></html>"},
      {"<body>x</body>", "<html><head></head><body>x</body></html>"},
      {"x</body></html>", "<html><head></head><body>x</body></body></html>"},
      {"<frameset><frame><noframes><body>x</body></noframes></frameset>",
       "<html><head></head><frameset><frame><noframes><body>x</body></noframes></frameset></html>"},
      {"<!-- <html><head><body> --><header>x</header>",
       "<html><head><!-- <html><head><body> --></head><body><header>x</header></body></html>"},
      {"<script>'<body>'</script>", "<html><head><script>'<body>'</script></head><body></body></html>"},
      {"<p title=it's><body>", "<html><head></head><p title=it's><body></html>"},
      // What is never closed swallows the rest; the new elements must stand before it.
      {"x<!-- y", "<html><head></head><body>x<!-- y</body></html>"},
      {"<title>t<p>x", "<html><head></head><body><title>t<p>x</body></html>"},
      {"<title>t</title x", "<html><head></head><body><title>t</title x</body></html>"},
      {"<html><p title=\"x>", "<html><head></head><body><p title=\"x></body>"},
      {"a < b & c <", "<html><head></head><body>a < b & c <</body></html>"}};
  expectEach(completed, rows);
}

// Every order of pieces, well-formed or not: a second round changes nothing, and all bytes stay in their
// order.
TEST(HtmlStructure, IsCompleteAfterOneRound) {
  const auto pieces = split(
      "<html>|<head>|</head>|<body>|</body>|</html>|text|<title>t</title>|<!--c-->|<!--|"
      "<frameset>|<p a='|<!doctype html>|<style>|</",
      "|");
  for (const std::string& a : pieces)
    for (const std::string& b : pieces)
      for (const std::string& c : pieces)
        for (const std::string& d : pieces) {
          const std::string html = a + b + c + d;
          const std::string once = completed(html);
          ASSERT_EQ(completed(once), once) << html;
          std::size_t kept = 0;
          for (const char byte : once) kept += kept < html.size() && byte == html[kept];
          ASSERT_EQ(kept, html.size()) << html << " became " << once;
        }
}

TEST(HtmlCharset, IsFoundInBothFormsOfMeta) {
  const Row rows[] = {
      {"<meta charset=utf-8>", "utf-8"},
      {"<META CHARSET = ' koi8-r ' />", "koi8-r"},
      {"<meta name=x><meta charset=\"a\"><meta charset=b>", "a"},
      {"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\">", "iso-8859-1"},
      {"<meta content='text/html;charset=\"gb2312\"' HTTP-EQUIV=content-type>", "gb2312"},
      {"<meta http-equiv=content-type content=text/html;charset=big5/>", "big5/"},
      {"<meta http-equiv=content-type content='charset; CharSet = x-sjis ; a=b'>", "x-sjis"},
      {"<meta content='text/html; charset=x'>", ""},
      {"<meta http-equiv=refresh content='0; charset=x'>", ""},
      {"<meta charset=''><meta charset><metacharset=x><p charset=x><meta charset=a", ""},
      {"<!-- <meta charset=a> --><meta charset=b>", "b"},
      {"<!--><meta charset=a>-->", "a"},
      {"<script>'<meta charset=a>'</scripty></script ><meta charset=b>", "b"},
      {"<title><meta charset=a></title><textarea><meta charset=a></TEXTAREA><style><meta charset=a></style>",
       ""},
      {"<p title='<meta charset=a>'><meta charset=b>", "b"},
      {"<![if !mso]><meta charset=a>", "a"}};
  expectEach(charsetOf, rows);
}

TEST(HtmlCharset, IsAddedAsFirstChildOfHeadAndRemovedWithoutTouchingAnotherByte) {
  const std::string meta = "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">";
  EXPECT_EQ(withCharset("<html><head profile='>'><title>t</title>", "utf-8"),
            "<html><head profile='>'>" + meta + "<title>t</title>");
  EXPECT_EQ(withCharset("<p>x", "utf-8"), "<html><head>" + meta + "</head><body><p>x</body></html>");
  EXPECT_EQ(withCharset("<head></head>", ""), "<head></head>");
  EXPECT_EQ(withCharset("<head></head>", nullptr), "<head></head>");
  EXPECT_EQ(charsetOf(withCharset("<head>", "x\"><script>")), "xscript");
  EXPECT_EQ(withoutCharset("<head> <meta charset=a>\r\n<meta name=b><META HTTP-EQUIV='content-type' "
                           "CONTENT='text/html; charset=c'></head>"),
            "<head> \r\n<meta name=b></head>");
  for (const char* html :
       {"<html><head>\r\n<title>t</title></head></html>", "<head/>", "<!--<head>--><head \n>x"})
    EXPECT_EQ(withoutCharset(withCharset(html, "koi8-r")), html);
}

TEST(Html, Utf16IsLeftAlone) {
  const std::string utf16("<\0m\0e\0t\0a\0 \0c\0h\0a\0r\0s\0e\0t\0=\0a\0>\0", 30);
  EXPECT_EQ(completed(utf16), utf16);
  EXPECT_EQ(charsetOf(utf16), "");
  EXPECT_EQ(withoutCharset(utf16), utf16);
}

TEST(Html, EndsSoonOnHostileText) {
  const auto read = [](const std::string& html) {
    completed(html);
    charsetOf(html);
    withoutCharset(html);
  };
  expectEndsSoon(
      read, {"<", "<!--", "<a", "<title>", "</title", "<script></scrip", "<meta a='", "<meta charset ",
             "<meta charset=a>", "<p =\"\">", "</", "<!", "<meta http-equiv=content-type content='charset"});
}

TEST(CidReferences, are_pointed_at_content_ids_and_nothing_else_changes) {
  const auto pointed = [](const std::string& html) {
    std::string out = "left over";
    pointCidReferences(html, {{"a.png", "A@x"}, {"my (1) é&.png", "B@x"}, {"100%.png", "C/<x"}}, out);
    return out;
  };
  const Row rows[] = {
      {"<img src=\"cid:a.png\">", "<img src=\"cid:A@x\">"},
      {"<IMG SRC=CID:a.png alt=x>", "<IMG SRC=CID:A@x alt=x>"},
      {"<img src='cid:my (1) é&.png'>", "<img src='cid:B@x'>"},
      {"<img src=\"cid:my%20(1)%20%C3%A9&amp;.png\">", "<img src=\"cid:B@x\">"},
      {"<img src=\"cid:my%20%281%29%20%c3%a9%26.png\">", "<img src=\"cid:B@x\">"},
      {"<img src=\"cid:100%.png\"><img src=\"cid:100%25.png\">",
       "<img src=\"cid:C%2F%3Cx\"><img src=\"cid:C%2F%3Cx\">"},
      {"<td style=\"background:url(cid:a.png)\">", "<td style=\"background:url(cid:A@x)\">"},
      {"<td style=\"a:url(&quot;cid:a.png&quot;)\">", "<td style=\"a:url(&quot;cid:A@x&quot;)\">"},
      {"<img srcset=\"cid:a.png 1x, cid:a.png 2x\">", "<img srcset=\"cid:A@x 1x, cid:A@x 2x\">"},
      {"<use xlink:href=\"cid:a.png#part\"/>", "<use xlink:href=\"cid:A@x#part\"/>"},
      {"<style>p { background: url('cid:a.png') }</style>",
       "<style>p { background: url('cid:A@x') }</style>"},
      {"<!--[if mso]><v:fill src=\"cid:a.png\"/><![endif]-->",
       "<!--[if mso]><v:fill src=\"cid:A@x\"/><![endif]-->"}};
  expectEach(pointed, rows);
  // Other parts, other schemes, and text that only looks like a reference.
  for (const char* html :
       {"<img src=\"cid:a.png@host\"><img src=\"cid:a.png2\"><img src=\"cid:xa.png\"><img src=\"cid:A.PNG\">",
        "<img src=\"acid:a.png\"><a href=\"http://x/?q=cid:a.png\">",
        "<p title=\"cid:a.png\">cid:a.png</p><script>'cid:a.png'</script>",
        "<img src=\"cid:", "<img src=\"cid:\"><img src=\"cid:%\"><img src=\"cid:&;\">"})
    EXPECT_EQ(pointed(html), html);
}

}  // namespace
}  // namespace mailtree
