#include "mailtree/mime/html/HtmlPage.h"

#include <string>
#include <string_view>

#include "mailtree/base/Log.h"
#include "mailtree/mime/html/HtmlReferences.h"
#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {
namespace {

bool appendHyperlinks(std::string_view html, ExtPtrArraySb& urls) {
  HtmlScanner scanner(html);
  while (const std::optional<Markup> markup = scanner.next()) {
    if (!markup->isStartOf("a") && !markup->isStartOf("area")) continue;
    const std::string url = urlOfReference(firstAttribute(*markup, "href"));
    if (url.empty() || url.front() == '#') continue;
    if (!urls.appendString(url)) return false;
  }
  return true;
}

}  // namespace

void _svHtml::setHtmlN(const char* html, std::size_t size) {
  m_html.setString(std::string_view(html, html ? size : 0));
}

void _svHtml::getHyperlinkUrls2(ExtPtrArraySb& urls, LogBase& log) const {
  const bool complete = neverThrow(false, [&] { return appendHyperlinks(m_html, urls); });
  if (!complete) log.logError("Failed to collect the hyperlink URLs of the HTML.");
}

}  // namespace mailtree
