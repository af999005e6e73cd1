#include "mailtree/mime/html/HtmlFrame.h"

#include <cstddef>
#include <utility>

#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {
namespace {

/// Sorts the pieces of pages into one head and one body.
class PageParts {
 public:
  explicit PageParts(std::string_view html) : m_html(html) {
    m_body.reserve(html.size());
    HtmlScanner scanner(html);
    while (const std::optional<Markup> markup = scanner.next()) see(*markup);
    takeText(html.size());
  }

  std::string framed(std::string_view before, std::string_view after) const {
    std::string page;
    page.reserve(m_html.size() + before.size() + after.size() + 64);
    page.append(m_prologue).append(m_htmlTag.empty() ? "<html>" : m_htmlTag);
    page.append("<head>").append(m_head).append("</head>").append(m_bodyTag.empty() ? "<body>" : m_bodyTag);
    page.append(before).append(m_body).append(after).append("</body></html>");
    return page;
  }

 private:
  void see(const Markup& markup) {
    takeText(markup.begin);
    m_at = markup.end;
    const bool wasInScript = std::exchange(m_isInScript, beginsScript(markup));
    if (!m_isInScript && !wasInScript && !isStructure(markup)) keep(markup);
    m_isInRawText = markup.kind == Markup::Kind::startTag && isRawTextElement(markup.name);
  }

  bool beginsScript(const Markup& markup) const {
    const bool isUnclosed = markup.kind == Markup::Kind::unclosed;
    return markup.isStartOf("script") || (isUnclosed && beginsWithNoCase(textOf(markup), "<script"));
  }

  /// Takes what a page has once, and leaves out what would be there twice.
  bool isStructure(const Markup& markup) {
    if (markup.kind == Markup::Kind::prologue) {
      if (m_htmlTag.empty() && m_head.empty() && m_body.empty()) m_prologue += textOf(markup);
      return true;
    }
    if (markup.isStartOf("html")) return takeFirst(markup, m_htmlTag);
    if (markup.isStartOf("head")) return m_isInHead = true;
    if (markup.isStartOf("body") || markup.isEndOf("head")) m_isInHead = false;
    if (markup.isStartOf("body")) return takeFirst(markup, m_bodyTag);
    return markup.isEndOf("head") || markup.isEndOf("html") || markup.isEndOf("body") ||
           isUnbegunQuotation(markup);
  }

  bool takeFirst(const Markup& markup, std::string& tag) {
    if (tag.empty()) tag = textOf(markup);
    return true;
  }

  bool isUnbegunQuotation(const Markup& markup) {
    if (markup.isStartOf("blockquote")) ++m_quotations;
    return markup.isEndOf("blockquote") && (m_quotations == 0 || m_quotations-- == 0);
  }

  void keep(const Markup& markup) {
    if (markup.kind == Markup::Kind::startTag && !isHeadElement(markup.name)) m_isInHead = false;
    // In the head it would take the whole body with it.
    if (markup.kind == Markup::Kind::unclosed) m_isInHead = false;
    (m_isInHead ? m_head : m_body) += withoutScripts(markup);
  }

  void takeText(std::size_t end) {
    const std::string_view text = m_html.substr(m_at, m_isInScript ? 0 : end - m_at);
    if (!m_isInRawText && !trim(text).empty()) m_isInHead = false;
    const bool isBeforePage = m_body.empty() && !m_isInHead && trim(text).empty();
    if (!isBeforePage) (m_isInHead ? m_head : m_body) += text;
    m_at = end;
  }

  /// A tag without attributes that hold a script: "onclick" and so on.
  std::string withoutScripts(const Markup& markup) const {
    std::string tag(textOf(markup));
    if (markup.kind != Markup::Kind::startTag) return tag;
    std::string_view name, value;
    bool hasScript = false;
    std::string kept = "<" + std::string(markup.name);
    for (AttributeReader reader(markup.attributes); reader.next(name, value);) {
      if (beginsWithNoCase(name, "on")) {
        hasScript = true;
        continue;
      }
      const char quote = contains(value, "\"") ? '\'' : '"';
      kept.append(" ").append(name);
      if (!value.empty()) kept.append("=").append(1, quote).append(value).append(1, quote);
    }
    return hasScript ? kept + ">" : tag;
  }

  std::string_view textOf(const Markup& markup) const {
    return m_html.substr(markup.begin, markup.end - markup.begin);
  }

  std::string_view m_html;
  std::size_t m_at = 0;
  bool m_isInHead = false;
  bool m_isInRawText = false;
  bool m_isInScript = false;     ///< Which would be sent under another name, and no mail program runs.
  std::size_t m_quotations = 0;  ///< Open ones.
  std::string m_prologue, m_htmlTag, m_head, m_bodyTag, m_body;
};

}  // namespace

std::string frameHtml(std::string_view html, std::string_view before, std::string_view after) {
  return PageParts(html).framed(before, after);
}

}  // namespace mailtree
