#include "mailtree/mime/html/HtmlReplace.h"

#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {
namespace {

/// Whether a value escaped for HTML could do harm: "on..." holds a script.
bool isCode(std::string_view attribute) noexcept {
  return beginsWithNoCase(attribute, "on") || equalsNoCase(attribute, "style") ||
         equalsNoCase(attribute, "srcdoc");
}

/// Whether an attribute with this value would run a script where it is followed as a link.
bool isScriptUrl(std::string_view value) noexcept {
  value = trim(value);
  return beginsWithNoCase(value, "javascript:") || beginsWithNoCase(value, "vbscript:") ||
         beginsWithNoCase(value, "data:text/html");
}

/// Whether the content of a raw text element is text that is shown, in which character references count.
bool isShown(std::string_view element) noexcept {
  return equalsNoCase(element, "title") || equalsNoCase(element, "textarea");
}

class PieceChanger {
 public:
  PieceChanger(std::string_view html, const HtmlPieceChange& change) : m_html(html), m_change(change) {}

  std::optional<std::string> run() {
    HtmlScanner scanner(m_html);
    std::size_t textFrom = 0;
    bool isText = true;
    while (const std::optional<Markup> markup = scanner.next()) {
      if (isText) offer(m_html.substr(textFrom, markup->begin - textFrom));
      if (markup->kind == Markup::Kind::startTag) offerAttributes(markup->attributes);
      isText =
          markup->kind != Markup::Kind::startTag || !isRawTextElement(markup->name) || isShown(markup->name);
      textFrom = markup->end;
    }
    if (isText) offer(m_html.substr(textFrom));
    if (m_out.empty() && m_done == 0) return std::nullopt;
    return std::move(m_out.append(m_html.substr(m_done)));
  }

 private:
  void offer(std::string_view piece) {
    if (std::optional<std::string> changed = m_change(piece)) put(piece, *changed);
  }

  void offerAttributes(std::string_view attributes) {
    std::string_view name, value;
    for (AttributeReader reader(attributes); reader.next(name, value);) {
      if (value.empty() || isCode(name)) continue;
      std::optional<std::string> changed = m_change(value);
      if (!changed || (isScriptUrl(*changed) && !isScriptUrl(value))) continue;
      if (!isQuoted(value)) *changed = contains(value, "\"") ? "'" + *changed + "'" : '"' + *changed + '"';
      put(value, *changed);
    }
  }

  bool isQuoted(std::string_view value) const noexcept {
    const char before = value.data()[-1];  // at least the name and "=" come before a value
    return before == '"' || before == '\'';
  }

  void put(std::string_view piece, std::string_view changed) {
    const auto at = static_cast<std::size_t>(piece.data() - m_html.data());
    m_out.append(m_html.substr(m_done, at - m_done)).append(changed);
    m_done = at + piece.size();
  }

  std::string_view m_html;
  const HtmlPieceChange& m_change;
  std::string m_out;
  std::size_t m_done = 0;  ///< The page is in m_out up to here.
};

}  // namespace

std::optional<std::string> changeHtmlPieces(std::string_view html, const HtmlPieceChange& change) {
  return looksLikeUtf16(html) ? std::nullopt : PieceChanger(html, change).run();
}

}  // namespace mailtree
