#include "mailtree/mime/html/HtmlText.h"

#include "mailtree/base/Utf.h"
#include "mailtree/mime/html/EnrichedText.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

TEST(HtmlText, ReadsAsAPersonReadsThePage) {
  const Row rows[] = {
      {"", ""},
      {"<title>t</title><style>p{}</style>a<!-- b --><script>1<2</script> <xml>c</xml>d", "a d\n"},
      {" <b>a</b>  b<i>c</i>\r\n d<br>e<br><br><br>f<br>", "a bc d\ne\n\nf\n"},
      {"<h1>a</h1>b<p>c<p>d<div>e</div>f", "a\n\nb\n\nc\n\nd\n\ne\nf\n"},
      {"a<p>&nbsp;</p><p><br></p>b<div>c</div><div><br></div>d", "a\n\nb\nc\n\nd\n"},
      {"<p style='margin:0 0 .0001pt'>a<p class=MsoNormal>b<p class=MsoNormal>&nbsp;<p style=margin:0>c",
       "a\nb\n\nc\n"},
      {"a<hr>b", "a\n\n--------------------\n\nb\n"},
      {"&lt;b&gt; &eacute;&copy; &hellip;&#8364;&#x80; &unknown; AT&T&amp", "<b> é© …€€ &unknown; AT&T&\n"},
      {"so\u00ADft\u200B a&nbsp;&nbsp;b \u2003c \u200C&nbsp;\u200C d\u200De", "soft a b c d\u200De\n"},
      {"<pre>\n a\n\tb\r\n\r\n\r\n&lt;</pre><div style='white-space:pre-wrap'>c  d",
       " a\n\tb\n\n<\n\nc  d\n"},
      {"<q>a</q> <span style='display:block'>b</span>c", "\"a\"\nb\nc\n"},
      {"a<img src=x alt='b &amp; c'><img alt=d>, <img alt=''><img alt=e width=1 height=1>f",
       "a b & c d, f\n"},
  };
  expectEach(textOfHtml, rows);
}

TEST(HtmlText, ReadsTheRichTextOfOldMail) {
  const Row enriched[] = {
      {"<bold>a</bold> b\r\nc\r\n\r\nd\n\n\ne", "a b c\nd\n\ne"},
      {"<Color><param>red</param>a</Color> <<b> 1 < 2 <x y> <", "a <b> 1 < 2 <x y> <"},
      {"<nofill>a\n b\n\nc</nofill>\nd</param>", "a\n b\n\nc d"},
  };
  expectEach([](std::string_view text) { return textOfEnriched(text, EnrichedForm::enriched); }, enriched);
  const Row richtext[] = {
      {"<Bold>a</Bold> 1 <lt> 2<nl>b\r\n\r\nc<comment>d</comment><Paragraph>e</Paragraph>f",
       "a 1 < 2\nb ce\n\nf"},
  };
  expectEach([](std::string_view text) { return textOfEnriched(text, EnrichedForm::richtext); }, richtext);
}

TEST(HtmlText, GivesListsAndQuotesPrefixes) {
  const Row rows[] = {
      {"<ul><li>a<br>b<li><p>c<p>d</ul>e", "* a\n  b\n* c\n\n  d\n\ne\n"},
      {"<ol start=9><li>a<ul><li>b<li><ul><li>c</ul></ul><li value=12>d</ol>",
       "9. a\n   * b\n   * * c\n12. d\n"},
      {"<ul style='list-style:none'><li>a<li>b</ul><li>c", "a\nb\n\n* c\n"},
      {"a<blockquote>b<blockquote><p>c<p>d</blockquote></blockquote><blockquote>e</blockquote>",
       "a\n\n> b\n>\n> > c\n> >\n> > d\n\n> e\n"},
      {"<dl><dt>a<dd>b<dd>c<dt>d</dl>", "a\n    b\n    c\nd\n"},
  };
  expectEach(textOfHtml, rows);
}

TEST(HtmlText, WritesSmallTablesInColumnsAndOthersInLines) {
  const std::string longText = repeat("word ", 20) + "end";
  const Row rows[] = {
      {"<table><tr><th>Name<th>Qty</tr><tr><td>日本<td>1<tr><td>abcdef<td>20</table>x",
       "Name    Qty\n日本    1\nabcdef  20\n\nx\n"},
      {"<table><tr><td>a<br>b<td><td>c<td>d<tr><td colspan=3>" + longText + "<td>e</table>",
       "a  c  d\nb\n" + longText + "  e\n"},
      {"<table><tr><td rowspan=2>a<td>b<tr><td>c</table>", "a  b\n   c\n"},
      {"<table><tr><td>" + longText + "<td>b<tr><td>c<td>" + longText + "</table>",
       longText + "\nb\nc  " + longText + "\n"},
      {"<table border=1><tr><td>a<td>" + longText + "</table>",
       "a  " + longText.substr(0, 74) + "\n   " + longText.substr(75) + "\n"},
      {"<table border=1><tr><td>a<td><li>z<p>" + std::string(80, 'x') + "</table>",
       "a  * z\n\n     " + std::string(73, 'x') + "\n   " + std::string(7, 'x') + "\n"},
      {"<blockquote>x<table><caption>t</caption><tr><td>a<td>b<tr><td>c</table></blockquote>",
       "> x\n>\n> t\n> a  b\n> c\n"},
      {"<table><tr><td><table><tr><td>a</table><td><table><tr><td>b</table></table>", "a  b\n"},
      {"<ul><li><table><tr><td>a<td>b<tr><td>cc<td>d</table></ul>", "* a   b\n  cc  d\n"},
  };
  expectEach(textOfHtml, rows);
}

TEST(HtmlText, NumbersLinks) {
  const Row rows[] = {
      {"<a href='http://a.b/?x&amp;y'>c</a>, <a href=mailto:d@e>f</a>; <a href=http://a.b/?x&y>g</a>.",
       "c [1], f [2]; g [1].\n\n[1] http://a.b/?x&y\n[2] mailto:d@e\n"},
      {"<a href=https://www.a.b/>a.b</a> <a href='mailto:c@d?subject=e'>C@d</a> <a href=http://x>a.b</a>",
       "a.b C@d a.b [1]\n\n[1] http://x\n"},
      {"<a href='java\tscript:x'>a</a> <a href=#b>b</a> <a name=c>c</a> <a href=http://d><img></a>",
       "a b c\n"},
      {"<a href=http://a><p>b</p></a>c<table><tr><td><a href=http://d>e<td>f</table>",
       "b [1]\n\nc\ne [2]  f\n\n[1] http://a\n[2] http://d\n"},
      {"<a href=http://a>b<a href=http://c>d</a>e", "b [1]d [2]e\n\n[1] http://a\n[2] http://c\n"},
  };
  expectEach(textOfHtml, rows);
}

TEST(HtmlText, LeavesOutWhatIsHidden) {
  const Row rows[] = {
      {"<div style='display:none'>a<div>b</div>c</div>d", "d\n"},
      {"<span hidden>a</span><span style='display:none'>b<span>c</span></span>d<p style=opacity:0>e", "d\n"},
      {"<div style='max-height:0'>a</div><table style='display:none'><tr><td>b</table>c", "c\n"},
      {"<td style='font-size:0'>a<img alt=b><b style='font-size:2em'>c</b><i style='font-size:9px'>d</i>",
       "b d\n"},
      {"<p style='visibility:hidden'>a<b style='visibility:visible'>c</b></p>", "c\n"},
      {"<x hidden><y>a</y></x>b<svg/>c<a hidden href=http://d>e</a>", "bc\n"},
      {"<table><tr><td hidden>a</div>b</td><td>c</table>d", "c\nd\n"},
  };
  expectEach(textOfHtml, rows);
}

TEST(HtmlText, IsLinearAndShallow) {
  for (const char* piece : {"<blockquote>x", "<ul><li>x", "<ol><li>x", "<pre>\nx", "<td rowspan=9>x<br>y"})
    EXPECT_LT(textOfHtml(repeat(piece, 10000)).size(), repeat(piece, 10000).size() * 6) << piece;
  expectEndsSoon(textOfHtml,
                 {"<div>", "<table>", "<table><tr><td>x", "<table><tr><td>x<td>y", "<blockquote>x",
                  "<ul><li>x", "</p>", "<b></i>", "<a href=x>", "<a href=x>x", "&", "&nbsp;", "<",
                  "<tr><td>x<td rowspan=9>y", "<p style='display:none'>", "<dl><dd>", "\u200C"});
}

}  // namespace
}  // namespace mailtree
