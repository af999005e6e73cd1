#include "mailtree/mime/html/HtmlPage.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "mailtree/base/Log.h"

namespace mailtree {
namespace {

std::string cleaned(std::string_view html) {
  LogNull log;
  StringBuffer out;
  _svHtml page;
  page.setHtmlN(html.data(), html.size());
  page.unSpam(log);
  page.getHtml(out);
  return std::string(out.view());
}

std::string urlsOf(std::string_view html) {
  LogNull log;
  ExtPtrArraySb urls;
  _svHtml page;
  page.setHtmlN(html.data(), html.size());
  page.getHyperlinkUrls2(urls, log);
  std::string joined;
  for (int i = 0; i < urls.getSize(); ++i) joined.append(urls.sbAt(i)->getString()).append(" | ");
  return joined;
}

struct Row {
  const char* html;
  const char* clean;
};

template <std::size_t N>
void expectCleaned(const Row (&rows)[N]) {
  for (const Row& row : rows) {
    EXPECT_EQ(cleaned(row.html), row.clean) << row.html;
    EXPECT_EQ(cleaned(row.clean), row.clean) << row.html;
  }
}

TEST(HtmlUnspam, MendsWordsThatMarkupCutsUp) {
  const Row rows[] = {
      {"V<!-- x -->iag<!---->ra", "Viagra"},
      {"V<b></b>i<font color=red face=x></font>a<b><i></i></b>g</>ra", "Viagra"},
      {"<b>V</b><!-- x --><b>i<!--y--></b>a", "<b>V</b><b>i</b>a"},
      {"\xC3\xA4<!-- x -->\xC3\xB6", "\xC3\xA4\xC3\xB6"},
      {"<a href=u>V<!--x--></a>i", "<a href=u>V</a>i"},
      // Between words, or where something shows.
      {"two <!-- x -->words<!-- y --> here<!-- z -->", "two <!-- x -->words<!-- y --> here<!-- z -->"},
      {"a<div></div>b<p></p>c<br><!-- x -->d", "a<div></div>b<p></p>c<br><!-- x -->d"},
      {"a<span class=icon></span>b<a name=c></a>d", "a<span class=icon></span>b<a name=c></a>d"},
      {"a<b><i></b></i>b", "a<b><i></b></i>b"},
      {"a<!--[if mso]>b<![endif]-->c<![if !mso]>d<![endif]>e",
       "a<!--[if mso]>b<![endif]-->c<![if !mso]>d<![endif]>e"},
      {"<script>a<!--x-->b</script><title>a<b></b>c</title><textarea>&#65;<!--x-->b</textarea>",
       "<script>a<!--x-->b</script><title>a<b></b>c</title><textarea>&#65;<!--x-->b</textarea>"},
      {"V<!--x-->i<!-- never closed", "Vi<!-- never closed"},
  };
  expectCleaned(rows);
}

TEST(HtmlUnspam, DecodesLettersAndDigitsAndNothingElse) {
  const Row rows[] = {
      {"&#86;&#x69;&#X61g&#0000114;a &#49;", "Viagra 1"},
      {"&#38;&#60;b&#62;&amp;&lt;&#32;&#228;&#;&#x;&", "&#38;&#60;b&#62;&amp;&lt;&#32;&#228;&#;&#x;&"},
      {"&#99999999999999999999999999;", "&#99999999999999999999999999;"},
      {"<a href='&#104;ttp'>&#104;</a>", "<a href='&#104;ttp'>h</a>"},
      {"<style>&#65;</style>&#65;<script>&#65;", "<style>&#65;</style>A<script>&#65;"},
  };
  expectCleaned(rows);
}

TEST(HtmlUnspam, RemovesInvisibleElements) {
  const Row rows[] = {
      {"a<div style='display:none'>x<p>y<br></p><img src=z></div>b", "ab"},
      {"a<DIV STYLE=\"color:red; Display : NONE !important\">x</DIV>b", "ab"},
      {"a<span hidden>x</span>b<p style=opacity:0.0>x</p>c", "abc"},
      {"V<span style='font-size:0px'>x<b>y</b></span>ia<font style='visibility:hidden'>z</font>gra",
       "Viagra"},
      {"<div style='max-height:0;overflow:hidden;padding:0'>preview</div>a", "a"},
      {"a<span style='display&#58;none'>x</span>b", "ab"},
      {"a<span hidden>x<span hidden>y</span></span><!--z-->b", "ab"},
      // Shown, or perhaps shown.
      {"<p style='display:none;display:block'>x</p><i style='display:block' hidden>x</i>",
       "<p style='display:none;display:block'>x</p><i style='display:block' hidden>x</i>"},
      {"<div style='font-size:0'><div style='font-size:13px'>x</div></div>",
       "<div style='font-size:0'><div style='font-size:13px'>x</div></div>"},
      {"<span style='visibility:hidden'>x<img src=y></span>",
       "<span style='visibility:hidden'>x<img src=y></span>"},
      {"<div style='height:0;overflow:hidden;padding-bottom:56%'>x</div>",
       "<div style='height:0;overflow:hidden;padding-bottom:56%'>x</div>"},
      {"<span style='height:0;overflow:hidden'>x</span>", "<span style='height:0;overflow:hidden'>x</span>"},
      {"<a style='mso-hide:all;font-size:0.5em'>x</a>", "<a style='mso-hide:all;font-size:0.5em'>x</a>"},
  };
  expectCleaned(rows);
}

TEST(HtmlUnspam, RemovesOnlyWhatTheStyleHidesForBrowsers) {
  const Row rows[] = {
      {"a<i style=opacity:0%>x</i><i style='opacity:.0'>y</i><i style='font-size:0%'>z</i>b", "ab"},
      {"a<i style='font-size:0vmin'>x</i><p style='height:0Q;overflow:hidden;display:block'>y</p>b", "ab"},
      {"a<i style='background:url(x;y);display:none'>x</i>b", "ab"},
      {"a<i style='content:\"\\\";\";/* ; */display:none'>x</i>b", "ab"},
  };
  expectCleaned(rows);
  const char* const shown[] = {
      "<i style=opacity:0px>x</i>",
      "<i style=opacity:0.>x</i>",
      "<i style=font-size:0foo>x</i>",
      "<i style=font-size:0.0.0>x</i>",
      "<p style='height:0%;overflow:hidden'>x</p>",
      "<p style='max-height:0%;overflow:hidden'>x</p>",
      "<p style='height:0;overflow:hidden;display:inline'>x</p>",
      "<p style='height:0;overflow:hidden;display:table'>x</p>",
      "<i style='background:url(data:x;display:none;y)'>x</i>",
      "<i style='content:\";display:none;\"'>x</i>",
      "<i style='/*;display:none;*/'>x</i>",
      "<i style='a:\";display:none'>x</i>",
  };
  for (const char* page : shown) EXPECT_EQ(cleaned(page), page);
}

TEST(HtmlUnspam, LeavesWhatAStyleSheetMayShow) {
  const struct {
    const char *sheet, *element;
    bool stays;
  } rows[] = {
      {"@media (max-width:9px){.Wide.m{display:block!important}}", "<p class='n M' style=display:none>x</p>",
       true},
      {"#m{display:block ! IMPORTANT}", "<p id=m style=display:none>x</p>", true},
      {"p[class=\"m\"]{display:block!important}", "<p class=m hidden>x</p>", true},
      {"p[class*=\"mob\"]{display:block!important}", "<p class=mobile hidden>x</p>", true},
      {".sm\\:m{display:block!important}", "<p class=sm:m style=opacity:0>x</p>", true},
      {".\\6d{display:block!important}", "<p class=m style=opacity:0>x</p>", true},
      {".m{height:auto!important}", "<p class=m style='height:0;overflow:hidden'>x</p>", true},
      {".m{display:block!important}", "<p class=&#109; style=display:none>x</p>", true},
      {".m{display:block!important}", "<p class=m style='display:none!important'>x</p>", false},
      {".m{display:block}", "<p class=m style=display:none>x</p>", false},
      {".mm{display:block!important}", "<p class=m style=display:none>x</p>", false},
      {".m{display:block!important}", "<p style=display:none>x</p>", false},
      {"p[class*=m]{display:block!important}", "<p class='' style=display:none>x</p>", false},
  };
  for (const auto& row : rows) {
    const std::string sheet = std::string("<style>") + row.sheet + "</style>";
    const std::string kept = row.stays ? row.element : "";
    EXPECT_EQ(cleaned(sheet + row.element), sheet + kept) << row.sheet << row.element;
    const std::string unclosed = std::string("<style>") + row.sheet;
    EXPECT_EQ(cleaned(row.element + unclosed), kept + unclosed) << row.sheet << row.element;
  }
}

TEST(HtmlUnspam, LeavesInvisibleElementsThatAreNotNestedAsTheyStand) {
  const char* const pages[] = {
      "<img style='display:none'><div style='display:none'>x",
      "<div hidden>x</span></div>",
      "<b><div hidden>x</b></div>",
      "<p hidden>a<p>b</p></p>",
      "<p hidden>a<div hidden>b</div>c</p>",
      "<p>a<span hidden><div>b</div></span>",
      "<a hidden>a<a>b</a></a>",
      "<div hidden><table><tr><td>x</table></div>",
      "<div hidden><style>p{}</style></div>",
      "<div hidden><![if !mso]></div>",
      "<table><tr><td hidden>x</td></tr></table>",
  };
  for (const char* page : pages) EXPECT_EQ(cleaned(page), page);
}

// Text that moves together must not turn into a tag or a reference.
TEST(HtmlUnspam, MakesNoMarkupOfText) {
  const char* const pages[] = {
      "a<<!---->script>alert(1)",

      "<<span hidden>x</span>script>", "<&#98;>x",  "a&<!---->lt;b", "a&am<b></b>p;",
      "&<i hidden>x</i>#60;",          "&&#97;mp;", "&#<!---->65;b", "a&#6<!---->5;b",
  };
  for (const char* page : pages) EXPECT_EQ(cleaned(page), page);
  EXPECT_EQ(cleaned(std::string_view("<\0b\0>\0&#65;", 11)), std::string_view("<\0b\0>\0&#65;", 11));
}

// Every order of pieces: a second round changes nothing, and no tag comes to be that was none.
TEST(HtmlUnspam, IsDoneAfterOneRound) {
  const char* const pieces[] = {"a",        " ",
                                "&",        "#65;",
                                "<",        "&#66;",
                                "<!--c-->", "<b>",
                                "</b>",     "<span hidden>",
                                "</span>",  "<p hidden>",
                                "</p>",     "<i style=font-size:0>",
                                "</i>",     "<a hidden>",
                                "</a>",     "script>"};
  for (const char* a : pieces)
    for (const char* b : pieces)
      for (const char* c : pieces)
        for (const char* d : pieces) {
          const std::string html = std::string("V") + a + b + c + d + "x";
          const std::string once = cleaned(html);
          ASSERT_EQ(cleaned(once), once) << html;
          ASSERT_LE(once.size(), html.size()) << html;
          ASSERT_EQ(contains(once, "<script>"), contains(html, "<script>")) << html;
        }
}

TEST(HtmlUnspam, IsLinear) {
  const char* const pieces[] = {"<b>",
                                "</b>",
                                "<!--",
                                "a<!---->",
                                "<span hidden>",
                                "&",
                                "&#",
                                "<p hidden>x",
                                "a<b>",
                                "<a hidden></a>",
                                "<i a=",
                                "<div hidden>x</div>y",
                                "<style>!important .a\\",
                                "<style>.a{!important}</style><p hidden class='a b'>x</p>",
                                "<i style='/*(\">x</i>"};
  for (const char* piece : pieces) {
    std::string html;
    while (html.size() < 1'000'000) html += piece;
    const auto start = std::chrono::steady_clock::now();
    cleaned(html);
    urlsOf(html);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << piece;
  }
}

TEST(HtmlHyperlinks, ComeDecodedInTheOrderOfThePage) {
  const struct {
    const char* html;
    const char* urls;
  } rows[] = {
      {"<a href=http://x/>1</a><AREA HREF='b'><a href=http://x/>2</a>", "http://x/ | b | http://x/ | "},
      {"<a href=' \n http://x/?a=1&amp;b=2\t&#38;c\r\n=3 '>", "http://x/?a=1&b=2&c=3 | "},
      {"<a href='h&#116;tp&colon;&sol;/x/&#8364;&#128;&lt=1&copy=2&amp'>",
       "http://x/\xE2\x82\xAC\xE2\x82\xAC&lt=1&copy=2& | "},
      {"<a href='&#0;&#xD800;&#x110000;&#x1F600;'>",
       "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xF0\x9F\x98\x80 | "},
      {"<a href=javascript:x><a href=mailto:a@b><a href=data:,x>", "javascript:x | mailto:a@b | data:,x | "},
      {"<a><a href><a href=''><a href=' #top'><a name=x href=page#top>", "page#top | "},
      {"<a href=1 href=2><a xhref=3>", "1 | "},
      {"<a href=x?a=\"b>1</a><a href=y>", "x?a=\"b | y | "},
      {"<p ='><a href=x>'", "x | "},
      {"<!-- --!><a href=x><!-- -->", "x | "},
      {"<base href=http://x/><link href=y><a href=z>", "z | "},
      {"<!--<a href=x>--><script>'<a href=y>'</script><b title='<a href=z>'><a href=\"w>", ""},
      {"plain text http://x/", ""},
      {"", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(urlsOf(row.html), row.urls) << row.html;
}

TEST(HtmlHyperlinks, AreAppended) {
  LogNull log;
  ExtPtrArraySb urls;
  _svHtml page;
  page.setHtmlN("<a href=x>tail", 10);
  page.getHyperlinkUrls2(urls, log);
  page.getHyperlinkUrls2(urls, log);
  page.setHtmlN(nullptr, 5);
  page.getHyperlinkUrls2(urls, log);
  EXPECT_EQ(urls.getSize(), 2);
}

}  // namespace
}  // namespace mailtree
