#include "mailtree/mime/html/Html.h"

#include "mailtree/mime/html/CidReferences.h"
#include "mailtree/mime/html/HtmlPage.h"
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
      {"<!DOCTYPE html>\n<p>x", "<!DOCTYPE html><html><head>\n</head><body><p>x</body></html>"},
      {"\uFEFF<?xml version='1.0'?><!doctype html><p>x",
       "\uFEFF<?xml version='1.0'?><!doctype html><html><head></head><body><p>x</body></html>"},
      {"<html><title>a<b</title><style>p{}</style><p>x</html>",
       "<html><head><title>a<b</title><style>p{}</style></head><body><p>x</body></html>"},
      {"<html><title>t</title></head><body>x</body></html>",
       "<html><head><title>t</title></head><body>x</body></html>"},
      {"<head><title>t</title></head>x", "<html><head><title>t</title></head><body>x</body></html>"},
      {"<html><head><title>t</title><p>x", "<html><head><title>t</title><body><p>x</body>"},
      {"<html><head><base><noscript><p></noscript></head>x</html>",
       "<html><head><base><noscript><p></noscript></head><body>x</body></html>"},
      {"x</body></html>", "<html><head></head><body>x</body></body></html>"},
      {"<frameset><frame><noframes><body>x</body></noframes></frameset>",
       "<html><head></head><frameset><frame><noframes><body>x</body></noframes></frameset></html>"},
      {"<!-- <html><head><body> --><header>x</header>",
       "<html><head><!-- <html><head><body> --></head><body><header>x</header></body></html>"},
      {"<script>'<body>'</script>", "<html><head><script>'<body>'</script></head><body></body></html>"},
      {"<p title=it's><body>", "<html><head></head><p title=it's><body></html>"},
      // What is never closed swallows the rest; the new elements must be before it.
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
    redirectCidReferences(html, {{"a.png", "A@x"}, {"my (1) é&.png", "B@x"}, {"100%.png", "C/<x"}}, out);
    return out;
  };
  const Row rows[] = {
      {"<img src=\"cid:a.png\"><IMG SRC=CID:a.png>", "<img src=\"cid:A@x\"><IMG SRC=CID:A@x>"},
      {"<img src='cid:my (1) é&.png'>", "<img src='cid:B@x'>"},
      {"<img src=\"cid:my%20(1)%20%C3%A9&amp;.png\">", "<img src=\"cid:B@x\">"},
      {"<img src='cid:100%.png'><img src='cid:100%25.png'>",
       "<img src='cid:C%2F%3Cx'><img src='cid:C%2F%3Cx'>"},
      {"<a style=\"b:url(cid:a.png)\">", "<a style=\"b:url(cid:A@x)\">"},
      {"<a style=\"b:url(&quot;cid:a.png&quot;)\">", "<a style=\"b:url(&quot;cid:A@x&quot;)\">"},
      {"<img srcset=\"cid:a.png 1x, cid:a.png 2x\">", "<img srcset=\"cid:A@x 1x, cid:A@x 2x\">"},
      {"<use xlink:href=\"cid:a.png#part\"/>", "<use xlink:href=\"cid:A@x#part\"/>"},
      {"<style>p{b:url('cid:a.png')}</style>", "<style>p{b:url('cid:A@x')}</style>"},
      {"<!--[if mso]><v:fill src='cid:a.png'/><![endif]-->",
       "<!--[if mso]><v:fill src='cid:A@x'/><![endif]-->"}};
  expectEach(pointed, rows);
  // Other parts, other schemes, and text that only looks like a reference.
  for (const char* html :
       {"<img src=\"cid:a.png@host\"><img src=\"cid:a.png2\"><img src=\"cid:xa.png\"><img src=\"cid:A.PNG\">",
        "<img src=\"acid:a.png\"><a href=\"http://x/?q=cid:a.png\">",
        "<p title=\"cid:a.png\">cid:a.png</p><script>'cid:a.png'</script>",
        "<img src=\"cid:", "<img src=\"cid:\"><img src=\"cid:%\"><img src=\"cid:&;\">"})
    EXPECT_EQ(pointed(html), html);
}

// Pages

std::string cleaned(std::string_view html) {
  _svHtml page;
  page.setHtmlN(html.data(), html.size());
  page.unSpam(quiet);
  return textOf([&](StringBuffer& out) { page.getHtml(out); });
}

std::string urlsOf(std::string_view html) {
  ExtPtrArraySb urls;
  _svHtml page;
  page.setHtmlN(html.data(), html.size());
  page.getHyperlinkUrls2(urls, quiet);
  std::string joined;
  for (int i = 0; i < urls.getSize(); ++i) joined.append(urls.sbAt(i)->getString()).append(" | ");
  return joined;
}

/// Every page becomes what is given, and that stays.
template <std::size_t N>
void expectCleaned(const Row (&rows)[N]) {
  expectEach(cleaned, rows);
  for (const auto& [html, clean] : rows) EXPECT_EQ(cleaned(clean), clean) << html;
}

void expectUnchanged(std::initializer_list<const char*> pages) {
  for (const char* page : pages) EXPECT_EQ(cleaned(page), page);
}

TEST(HtmlUnspam, MendsWordsThatMarkupCutsUp) {
  const Row rows[] = {{"V<!-- x -->iag<!---->ra", "Viagra"},
                      {"V<b></b>i<font color=red face=x></font>a<b><i></i></b>g</>ra", "Viagra"},
                      {"<b>V</b><!-- x --><b>i<!--y--></b>a", "<b>V</b><b>i</b>a"},
                      {"\xC3\xA4<!-- x -->\xC3\xB6", "\xC3\xA4\xC3\xB6"},
                      {"<a href=u>V<!--x--></a>i", "<a href=u>V</a>i"},
                      {"V<!--x-->i<!-- never closed", "Vi<!-- never closed"}};
  expectCleaned(rows);
  // Between words, or where something shows.
  expectUnchanged({"two <!-- x -->words<!-- y --> here<!-- z -->", "a<div></div>b<p></p>c<br><!-- x -->d",
                   "a<span class=icon></span>b<a name=c></a>d", "a<b><i></b></i>b",
                   "a<!--[if mso]>b<![endif]-->c<![if !mso]>d<![endif]>e",
                   "<script>a<!--x-->b</script><title>a<b></b>c</title><textarea>&#65;<!--x-->b</textarea>"});
}

TEST(HtmlUnspam, DecodesLettersAndDigitsAndNothingElse) {
  const Row rows[] = {{"&#86;&#x69;&#X61g&#0000114;a &#49;", "Viagra 1"},
                      {"<a href='&#104;ttp'>&#104;</a>", "<a href='&#104;ttp'>h</a>"},
                      {"<style>&#65;</style>&#65;<script>&#65;", "<style>&#65;</style>A<script>&#65;"}};
  expectCleaned(rows);
  expectUnchanged({"&#38;&#60;b&#62;&amp;&lt;&#32;&#228;&#;&#x;&", "&#99999999999999999999999999;"});
}

TEST(HtmlUnspam, RemovesWhatIsInvisible) {
  const Row rows[] = {
      {"a<div style='display:none'>x<p>y<br></p><img src=z></div>b", "ab"},
      {"a<DIV STYLE=\"color:red; Display : NONE !important\">x</DIV>b<span hidden>x</span>c", "abc"},
      {"V<span style='font-size:0px'>x<b>y</b></span>ia<font style='visibility:hidden'>z</font>", "Via"},
      {"<div style='max-height:0;overflow:hidden;padding:0'>preview</div>a<p style=opacity:0.0>x</p>b", "ab"},
      {"a<span style='display&#58;none'>x</span>b<span hidden>x<span hidden>y</span></span><!--z-->c", "abc"},
      // As browsers read the style
      {"a<i style=opacity:0%>x</i><i style='opacity:.0'>y</i><i style='font-size:0%'>z</i>b", "ab"},
      {"a<i style='font-size:0vmin'>x</i><p style='height:0Q;overflow:hidden;display:block'>y</p>b", "ab"},
      {"a<i style='b:url(x;y);display:none'>x</i><i style='c:\"\\\";\";/* ; */display:none'>x</i>b", "ab"}};
  expectCleaned(rows);
}

TEST(HtmlUnspam, LeavesWhatIsOrMayBeShown) {
  expectUnchanged({"<p style='display:none;display:block'>x</p><i style='display:block' hidden>x</i>",
                   "<div style='font-size:0'><div style='font-size:13px'>x</div></div>",
                   "<span style='visibility:hidden'>x<img src=y></span>",
                   "<div style='height:0;overflow:hidden;padding-bottom:56%'>x</div>",
                   "<span style='height:0;overflow:hidden'>x</span>",
                   "<a style='mso-hide:all;font-size:0.5em'>x</a>", "<i style=opacity:0px>x</i>",
                   "<i style=opacity:0.>x</i>", "<i style=font-size:0foo>x</i>",
                   "<i style=font-size:0.0.0>x</i>", "<p style='height:0%;overflow:hidden'>x</p>",
                   "<p style='max-height:0%;overflow:hidden'>x</p>",
                   "<p style='height:0;overflow:hidden;display:inline'>x</p>",
                   "<p style='height:0;overflow:hidden;display:table'>x</p>",
                   "<i style='background:url(data:x;display:none;y)'>x</i>",
                   "<i style='content:\";display:none;\"'>x</i>", "<i style='/*;display:none;*/'>x</i>",
                   "<i style='a:\";display:none'>x</i>"});
  // Not nested as they should be
  expectUnchanged({"<img style='display:none'><div style='display:none'>x", "<div hidden>x</span></div>",
                   "<b><div hidden>x</b></div>", "<p hidden>a<p>b</p></p>",
                   "<p hidden>a<div hidden>b</div>c</p>", "<p>a<span hidden><div>b</div></span>",
                   "<a hidden>a<a>b</a></a>", "<div hidden><table><tr><td>x</table></div>",
                   "<div hidden><style>p{}</style></div>", "<div hidden><![if !mso]></div>",
                   "<table><tr><td hidden>x</td></tr></table>"});
}

TEST(HtmlUnspam, LeavesWhatAStyleSheetMayShow) {
  const Row shown[] = {
      {"@media (max-width:9px){.Wide.m{display:block!important}}", "<p class='n M' style=display:none>x</p>"},
      {"#m{display:block ! IMPORTANT}", "<p id=m style=display:none>x</p>"},
      {"p[class=\"m\"]{display:block!important}", "<p class=m hidden>x</p>"},
      {"p[class*=\"mob\"]{display:block!important}", "<p class=mobile hidden>x</p>"},
      {".sm\\:m{display:block!important}", "<p class=sm:m style=opacity:0>x</p>"},
      {".\\6d{display:block!important}", "<p class=m style=opacity:0>x</p>"},
      {".m{height:auto!important}", "<p class=m style='height:0;overflow:hidden'>x</p>"},
      {".m{display:block!important}", "<p class=&#109; style=display:none>x</p>"}};
  const Row hidden[] = {{".m{display:block!important}", "<p class=m style='display:none!important'>x</p>"},
                        {".m{display:block}", "<p class=m style=display:none>x</p>"},
                        {".mm{display:block!important}", "<p class=m style=display:none>x</p>"},
                        {".m{display:block!important}", "<p style=display:none>x</p>"},
                        {"p[class*=m]{display:block!important}", "<p class='' style=display:none>x</p>"}};
  const auto expectKept = [](const Row& row, const std::string& kept) {
    const std::string unclosed = "<style>" + row.first, sheet = unclosed + "</style>";
    EXPECT_EQ(cleaned(sheet + row.second), sheet + kept);
    EXPECT_EQ(cleaned(row.second + unclosed), kept + unclosed);
  };
  for (const Row& row : shown) expectKept(row, row.second);
  for (const Row& row : hidden) expectKept(row, "");
}

// Text that moves together must not turn into a tag or a reference.
TEST(HtmlUnspam, MakesNoMarkupOfText) {
  expectUnchanged({"a<<!---->script>alert(1)", "<<span hidden>x</span>script>", "<&#98;>x", "a&<!---->lt;b",
                   "a&am<b></b>p;", "&<i hidden>x</i>#60;", "&&#97;mp;", "&#<!---->65;b", "a&#6<!---->5;b"});
  EXPECT_EQ(cleaned("<\0b\0>\0&#65;"s), "<\0b\0>\0&#65;"s);
}

// Every order of pieces: a second round changes nothing, and no tag comes to be that was none.
TEST(HtmlUnspam, IsDoneAfterOneRound) {
  const auto pieces = split(
      "a| |&|#65;|<|&#66;|<!--c-->|<b>|</b>|<span hidden>|</span>|<p hidden>|</p>|"
      "<i style=font-size:0>|</i>|<a hidden>|</a>|script>",
      "|");
  for (const std::string& a : pieces)
    for (const std::string& b : pieces)
      for (const std::string& c : pieces)
        for (const std::string& d : pieces) {
          const std::string html = "V" + a + b + c + d + "x";
          const std::string once = cleaned(html);
          ASSERT_EQ(cleaned(once), once) << html;
          ASSERT_LE(once.size(), html.size()) << html;
          ASSERT_EQ(contains(once, "<script>"), contains(html, "<script>")) << html;
        }
}

TEST(HtmlUnspam, IsLinear) {
  const auto read = [](const std::string& html) {
    cleaned(html);
    urlsOf(html);
  };
  expectEndsSoon(read,
                 {"<b>", "</b>", "<!--", "a<!---->", "<span hidden>", "&", "&#", "<p hidden>x", "a<b>",
                  "<a hidden></a>", "<i a=", "<div hidden>x</div>y", "<style>!important .a\\",
                  "<style>.a{!important}</style><p hidden class='a b'>x</p>", "<i style='/*(\">x</i>"},
                 300'000);
}

TEST(HtmlHyperlinks, ComeDecodedInTheOrderOfThePage) {
  const Row rows[] = {
      {"<a href=http://x/>1</a><AREA HREF='b'><a href=http://x/>2</a>", "http://x/ | b | http://x/ | "},
      {"<a href=' \n http://x/?a=1&amp;b=2\t&#38;c\r\n=3 '>", "http://x/?a=1&b=2&c=3 | "},
      {"<a href='h&#116;tp&colon;&sol;/x/&#8364;&#128;&lt=1&copy=2&amp'>", "http://x/€€&lt=1&copy=2& | "},
      {"<a href='&#0;&#xD800;&#x110000;&#x1F600;'>", "\uFFFD\uFFFD\uFFFD😀 | "},
      {"<a><a href><a href=''><a href=' #top'><a name=x href=page#top>", "page#top | "},
      {"<a href=1 href=2><a xhref=3>", "1 | "},
      {"<a href=x?a=\"b>1</a><a href=y>", "x?a=\"b | y | "},
      {"<p ='><a href=x>'", "x | "},
      {"<!-- --!><a href=x><!-- -->", "x | "},
      {"<base href=http://x/><link href=y><a href=z>", "z | "},
      {"<!--<a href=x>--><script>'<a href=y>'</script><b title='<a href=z>'><a href=\"w>", ""}};
  expectEach(urlsOf, rows);
}

TEST(HtmlHyperlinks, AreAppended) {
  ExtPtrArraySb urls;
  _svHtml page;
  page.setHtmlN("<a href=x>tail", 10);
  page.getHyperlinkUrls2(urls, quiet);
  page.getHyperlinkUrls2(urls, quiet);
  page.setHtmlN(nullptr, 5);
  page.getHyperlinkUrls2(urls, quiet);
  EXPECT_EQ(urls.getSize(), 2);
}

}  // namespace
}  // namespace mailtree
