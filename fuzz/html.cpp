// HTML pages: structure, charset META tags, clean-up, hyperlinks.
#include <string>

#include "fuzz/target.h"
#include "mailtree/base/Log.h"
#include "mailtree/mime/html/Html.h"
#include "mailtree/mime/html/HtmlPage.h"
#include "mailtree/mime/html/HtmlScanner.h"

using namespace mailtree;

namespace {

void structure(std::string_view page) {
  StringBuffer html(page);
  _svHtmlHelp::ensureStructure(html);
  fuzz::require(!_svHtmlHelp::ensureStructure(html), "a complete page is unchanged");
  fuzz::require(html.getSize() >= page.size(), "completing removes nothing");
}

void charsetTag(std::string_view page) {
  LogNull log;
  StringBuffer html(page), charset;
  _svHtmlHelp::ensureStructure(html);
  // In "<<meta charset=a>meta charset=b>" removing the tag would make a tag of the text around it.
  if (looksLikeUtf16(page) || contains(html.view(), "<<")) return;
  _svHtmlHelp::removeCharsetMetaTag(html, log);
  fuzz::require(!_svHtmlHelp::getCharset(html, charset), "a removed charset is gone");
  const std::string before(html.view());
  _svHtmlHelp::addCharsetMetaTag(html, "koi8-r", log);
  fuzz::require(_svHtmlHelp::getCharset(html, charset), "an added charset is found");
  fuzz::require(charset.view() == "koi8-r", "the added charset is the one found");
  _svHtmlHelp::removeCharsetMetaTag(html, log);
  fuzz::require(html.view() == before, "adding and removing a charset changes nothing");
}

struct Tags {
  std::size_t starts = 0, scripts = 0;
};

Tags tagsOf(std::string_view page) {
  Tags tags;
  HtmlScanner scanner(page);
  while (const std::optional<Markup> markup = scanner.next()) {
    tags.starts += markup->kind == Markup::Kind::startTag;
    tags.scripts += markup->isStartOf("script");
  }
  return tags;
}

int countHyperlinks(const _svHtml& page) {
  LogNull log;
  ExtPtrArraySb urls;
  page.getHyperlinkUrls2(urls, log);
  for (int i = 0; i < urls.getSize(); ++i)
    fuzz::require(urls.sbAt(i)->view().find_first_of("\t\r\n") == std::string_view::npos,
                  "a URL is one line");
  return urls.getSize();
}

void cleanUp(std::string_view text) {
  LogNull log;
  _svHtml page;
  page.setHtmlN(text.data(), text.size());
  const int hyperlinks = countHyperlinks(page);
  page.unSpam(log);
  StringBuffer once, twice;
  page.getHtml(once);
  fuzz::require(once.getSize() <= text.size(), "cleaning up adds nothing");
  fuzz::require(countHyperlinks(page) <= hyperlinks, "cleaning up adds no hyperlink");
  const Tags before = tagsOf(text), after = tagsOf(once);
  fuzz::require(after.starts <= before.starts, "cleaning up adds no tag");
  fuzz::require(after.scripts == before.scripts, "cleaning up keeps scripts");
  page.unSpam(log);
  page.getHtml(twice);
  fuzz::require(once.view() == twice.view(), "a clean page is unchanged");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view page = fuzz::textOf(data, size);
  structure(page);
  charsetTag(page);
  cleanUp(page);
  return 0;
}
