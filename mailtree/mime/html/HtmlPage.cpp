#include "mailtree/mime/html/HtmlPage.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "mailtree/base/Log.h"
#include "mailtree/mime/html/HtmlReferences.h"
#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {
namespace {

// The value of the first href; empty when there is none.
std::string_view hrefOf(const Markup& startTag) noexcept {
  std::string_view name, value;
  for (AttributeReader attributes(startTag.attributes); attributes.next(name, value);)
    if (equalsNoCase(name, "href")) return value;
  return {};
}

// The URL that a browser would use.
std::string urlOf(std::string_view href) {
  std::string url = decodeReferences(href);
  const auto isBlankOrControl = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
  url.erase(std::find_if_not(url.rbegin(), url.rend(), isBlankOrControl).base(), url.end());
  url.erase(url.begin(), std::find_if_not(url.begin(), url.end(), isBlankOrControl));
  url.erase(
      std::remove_if(url.begin(), url.end(), [](char c) { return c == '\t' || c == '\r' || c == '\n'; }),
      url.end());
  return url;
}

bool appendHyperlinks(std::string_view html, ExtPtrArraySb& urls) {
  HtmlScanner scanner(html);
  while (const std::optional<Markup> markup = scanner.next()) {
    if (!markup->isStartOf("a") && !markup->isStartOf("area")) continue;
    const std::string url = urlOf(hrefOf(*markup));
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
