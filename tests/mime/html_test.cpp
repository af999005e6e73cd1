#include "mailtree/mime/html/Html.h"

#include <gtest/gtest.h>

#include <string>

#include "mailtree/base/Log.h"

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
  LogNull log;
  StringBuffer text(html);
  _svHtmlHelp::addCharsetMetaTag(text, charset, log);
  return text.getString();
}

std::string withoutCharset(std::string_view html) {
  LogNull log;
  StringBuffer text(html);
  _svHtmlHelp::removeCharsetMetaTag(text, log);
  return std::string(text.view());
}

TEST(HtmlStructure, AddsWhatIsMissingAndNothingTwice) {
  const struct {
    const char* html;
    const char* complete;
  } rows[] = {
      {"<html><head></head><body>x</body></html>", "<html><head></head><body>x</body></html>"},
      {"<HTML\nlang=en><HEAD/><BODY class='a>b'>x", "<HTML\nlang=en><HEAD/><BODY class='a>b'>x"},
      {"", "<html><head></head><body></body></html>"},
      {"Hello <b>you</b>", "<html><head></head><body>Hello <b>you</b></body></html>"},
      {"<!DOCTYPE html>\n<p>x", "<!DOCTYPE html><html><head>\n</head><body><p>x</body></html>"},
      {"\xEF\xBB\xBF<?xml version='1.0'?><!doctype html><p>x",
       "\xEF\xBB\xBF<?xml version='1.0'?><!doctype html><html><head></head><body><p>x</body></html>"},
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
      {"a < b & c <", "<html><head></head><body>a < b & c <</body></html>"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(completed(row.html), row.complete) << row.html;
    EXPECT_EQ(completed(row.complete), row.complete) << row.html;
  }
}

// Every order of pieces, well-formed or not: a second round changes nothing, and all bytes stay in their
// order.
TEST(HtmlStructure, IsCompleteAfterOneRound) {
  const char* const pieces[] = {"<html>",     "<head>", "</head>",          "<body>",   "</body>",
                                "</html>",    "text",   "<title>t</title>", "<!--c-->", "<!--",
                                "<frameset>", "<p a='", "<!doctype html>",  "<style>",  "</"};
  for (const char* a : pieces)
    for (const char* b : pieces)
      for (const char* c : pieces)
        for (const char* d : pieces) {
          const std::string html = std::string(a) + b + c + d;
          const std::string once = completed(html);
          ASSERT_EQ(completed(once), once) << html;
          std::size_t kept = 0;
          for (const char byte : once) kept += kept < html.size() && byte == html[kept];
          ASSERT_EQ(kept, html.size()) << html << " became " << once;
        }
}

TEST(HtmlCharset, IsFoundInBothFormsOfMeta) {
  const struct {
    const char* html;
    const char* charset;
  } rows[] = {
      {"<meta charset=utf-8>", "utf-8"},
      {"<META CHARSET = ' koi8-r ' />", "koi8-r"},
      {"<meta name=x><meta charset=\"a\"><meta charset=b>", "a"},
      {"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\">", "iso-8859-1"},
      {"<meta content='text/html;charset=\"gb2312\"' HTTP-EQUIV=content-type>", "gb2312"},
      {"<meta http-equiv=content-type content=text/html;charset=big5/>", "big5/"},
      {"<meta http-equiv=content-type content='charset; CharSet = x-sjis ; a=b'>", "x-sjis"},
      {"<meta content='text/html; charset=x'>", ""},
      {"<meta http-equiv=refresh content='0; charset=x'>", ""},
      {"<meta charset=''><meta charset>", ""},
      {"<metacharset=x><p charset=x>", ""},
      {"<!-- <meta charset=a> --><meta charset=b>", "b"},
      {"<!--><meta charset=a>-->", "a"},
      {"<script>'<meta charset=a>'</scripty></script ><meta charset=b>", "b"},
      {"<title><meta charset=a></title><textarea><meta charset=a></TEXTAREA><style><meta charset=a></style>",
       ""},
      {"<p title='<meta charset=a>'><meta charset=b>", "b"},
      {"<![if !mso]><meta charset=a>", "a"},
      {"<meta charset=a", ""},
      {"", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(charsetOf(row.html), row.charset) << row.html;
}

TEST(HtmlCharset, IsAddedAsFirstChildOfHead) {
  const std::string meta = "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">";
  EXPECT_EQ(withCharset("<html><head profile='>'><title>t</title>", "utf-8"),
            "<html><head profile='>'>" + meta + "<title>t</title>");
  EXPECT_EQ(withCharset("<p>x", "utf-8"), "<html><head>" + meta + "</head><body><p>x</body></html>");
  EXPECT_EQ(withCharset("<head></head>", ""), "<head></head>");
  EXPECT_EQ(withCharset("<head></head>", nullptr), "<head></head>");
  EXPECT_EQ(charsetOf(withCharset("<head>", "x\"><script>")), "xscript");
}

TEST(HtmlCharset, IsRemovedWithoutTouchingAnotherByte) {
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
  for (const char* unit :
       {"<", "<!--", "<a", "<title>", "</title", "<script></scrip", "<meta a='", "<meta charset ",
        "<meta charset=a>", "<p =\"\">", "</", "<!", "<meta http-equiv=content-type content='charset"}) {
    std::string html;
    for (int i = 0; i < 200'000; ++i) html += unit;
    EXPECT_FALSE(completed(html).empty());
    charsetOf(html);
    withoutCharset(html);
  }
}

}  // namespace
}  // namespace mailtree
