#include "mailtree/mime/html/Html.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

// The charset in "text/html; charset=utf-8", with optional quotes.
std::string_view charsetInContent(std::string_view content) noexcept {
  constexpr std::string_view kKey = "charset";
  for (std::size_t at; (at = findNoCase(content, kKey)) != kNowhere;) {
    content = trimLeft(content.substr(at + kKey.size()));
    if (!content.starts_with('=')) continue;
    content = trimLeft(content.substr(1));
    if (content.starts_with('"') || content.starts_with('\'')) {
      const std::size_t close = content.find(content.front(), 1);
      return close == kNowhere ? std::string_view() : trim(content.substr(1, close - 1));
    }
    return content.substr(0, content.find_first_of("; \t\r\n\f"));
  }
  return {};
}

// The charset that a META start tag declares; empty when it declares none.
std::string_view charsetOfMeta(const Markup& meta) noexcept {
  std::string_view name, value, charset, content, httpEquiv;
  for (AttributeReader attributes(meta.attributes); attributes.next(name, value);) {
    // The first of several attributes of one name counts.
    if (equalsNoCase(name, "charset") && charset.empty()) charset = trim(value);
    if (equalsNoCase(name, "content") && content.empty()) content = value;
    if (equalsNoCase(name, "http-equiv") && httpEquiv.empty()) httpEquiv = trim(value);
  }
  if (!charset.empty()) return charset;
  return equalsNoCase(httpEquiv, "content-type") ? charsetInContent(content) : std::string_view();
}

// The next META tag that declares a charset; `charset` receives it.
std::optional<Markup> nextCharsetMeta(HtmlScanner& scanner, std::string_view& charset) noexcept {
  while (const std::optional<Markup> markup = scanner.next()) {
    if (!markup->isStartOf("meta")) continue;
    charset = charsetOfMeta(*markup);
    if (!charset.empty()) return markup;
  }
  return std::nullopt;
}

// Offsets of the structural tags; kNowhere when absent.
struct Structure {
  std::size_t start = 0;           // After byte-order mark, XML declaration and doctype.
  std::size_t html = kNowhere;     // After the start tag.
  std::size_t htmlEnd = kNowhere;  // Before the last end tag.
  std::size_t head = kNowhere;     // After the start tag.
  std::size_t headEnd = kNowhere;  // After the end tag, which may come without a start tag.
  bool hasBody = false;
  bool hasFrames = false;
  std::size_t content = kNowhere;  // Before the first thing not allowed in a head.
};

// Finds the structure in one pass over the text.
class StructureFinder {
 public:
  static Structure find(std::string_view html) noexcept {
    StructureFinder finder(html);
    HtmlScanner scanner(html);
    while (const std::optional<Markup> markup = scanner.next()) finder.see(*markup);
    finder.recordText(html.size());
    return finder.m_found;
  }

 private:
  explicit StructureFinder(std::string_view html) noexcept : m_html(html) {
    if (html.starts_with("\xEF\xBB\xBF")) m_found.start = m_textBegin = 3;
  }

  void see(const Markup& markup) noexcept {
    recordText(markup.begin);
    m_textBegin = markup.end;
    switch (markup.kind) {
      case Markup::Kind::prologue: {
        const bool isFirst =
            m_found.html == kNowhere && m_found.head == kNowhere && m_found.content == kNowhere;
        if (isFirst) m_found.start = markup.end;
        break;
      }
      case Markup::Kind::startTag: onStartTag(markup); break;
      case Markup::Kind::endTag: onEndTag(markup); break;
      case Markup::Kind::unclosed: recordContent(markup.begin); break;
      case Markup::Kind::comment: break;
    }
  }

  void onStartTag(const Markup& tag) noexcept {
    if (tag.isStartOf("html")) {
      if (m_found.html == kNowhere) m_found.html = tag.end;
    } else if (tag.isStartOf("head")) {
      if (m_found.head == kNowhere) m_found.head = tag.end;
    } else if (tag.isStartOf("body")) {
      m_found.hasBody = true;
    } else if (tag.isStartOf("frameset")) {
      m_found.hasFrames = true;
    }
    if (!isHeadElement(tag.name)) recordContent(tag.begin);
    m_isInRawText = isRawTextElement(tag.name);
  }

  void onEndTag(const Markup& tag) noexcept {
    m_isInRawText = false;
    if (tag.isEndOf("html")) m_found.htmlEnd = tag.begin;
    const bool mayEndHead = m_found.head != kNowhere || m_found.content == kNowhere;
    if (tag.isEndOf("head") && mayEndHead && m_found.headEnd == kNowhere) {
      m_found.headEnd = tag.end;
      m_found.content = kNowhere;  // the supposed content was in the head after all
    }
    if (tag.isEndOf("html") || tag.isEndOf("body")) recordContent(tag.begin);
  }

  void recordText(std::size_t end) noexcept {
    if (m_isInRawText) return;
    const std::string_view text = m_html.substr(m_textBegin, end - m_textBegin);
    const std::string_view visible = trimLeft(text);
    if (!visible.empty()) recordContent(end - visible.size());
  }

  void recordContent(std::size_t at) noexcept {
    if (m_found.content == kNowhere) m_found.content = at;
  }

  std::string_view m_html;
  std::size_t m_textBegin = 0;
  bool m_isInRawText = false;
  Structure m_found;
};

// Copies a text and inserts pieces at ascending positions.
class Inserter {
 public:
  explicit Inserter(std::string_view text) : m_text(text) { m_out.reserve(text.size() + 64); }
  void insert(std::size_t at, std::string_view piece) {
    at = std::max(at, m_copied);
    m_out.append(m_text, m_copied, at - m_copied).append(piece);
    m_copied = at;
  }
  std::string finish() && {
    m_out.append(m_text, m_copied);
    return std::move(m_out);
  }

 private:
  std::string_view m_text;
  std::size_t m_copied = 0;
  std::string m_out;
};

// Only start tags are checked, and none is inserted where an unterminated comment or script would swallow it:
// a second call finds everything that the first one added.
bool completeStructure(std::string_view html, std::string& out) {
  const Structure found = StructureFinder::find(html);
  const bool addHtml = found.html == kNowhere;
  const bool addHead = found.head == kNowhere;
  const bool addBody = !found.hasBody && !found.hasFrames;
  if (!addHtml && !addHead && !addBody) return false;

  Inserter inserter(html);
  if (addHtml) inserter.insert(found.start, "<html>");
  const std::size_t htmlEnd = std::min(found.htmlEnd, html.size());
  const std::size_t content = std::min(found.content, htmlEnd);
  if (addHead) {
    inserter.insert(addHtml ? found.start : found.html, "<head>");
    if (found.headEnd == kNowhere) inserter.insert(content, "</head>");
  }
  if (addBody) {
    inserter.insert(found.headEnd == kNowhere ? content : found.headEnd, "<body>");
    inserter.insert(htmlEnd, "</body>");
  }
  if (addHtml && found.htmlEnd == kNowhere) inserter.insert(html.size(), "</html>");
  out = std::move(inserter).finish();
  return true;
}

// The name is untrusted: keeps only characters that cannot end the attribute.
std::string safeName(std::string_view charset) {
  std::string name;
  std::copy_if(charset.begin(), charset.end(), std::back_inserter(name),
               [](char c) { return isAlnumAscii(c) || std::string_view("-_.:+").find(c) != kNowhere; });
  return name;
}

std::string withoutCharsetMetas(std::string_view html) {
  std::string out;
  std::size_t kept = 0;
  std::string_view charset;
  HtmlScanner scanner(html);
  while (const std::optional<Markup> meta = nextCharsetMeta(scanner, charset)) {
    out.append(html, kept, meta->begin - kept);
    kept = meta->end;
  }
  return out.append(html, kept);
}

}  // namespace

bool _svHtmlHelp::ensureStructure(StringBuffer& html) {
  return neverThrow(false, [&] {
    std::string complete;
    if (looksLikeUtf16(html) || !completeStructure(html, complete)) return false;
    html.text() = std::move(complete);
    return true;
  });
}

bool _svHtmlHelp::getCharset(const StringBuffer& html, StringBuffer& out) {
  out.weakClear();
  if (looksLikeUtf16(html)) return false;
  std::string_view charset;
  HtmlScanner scanner(html);
  return nextCharsetMeta(scanner, charset) && out.setString(charset);
}

void _svHtmlHelp::addCharsetMetaTag(StringBuffer& html, const char* charset, LogBase& log) {
  const bool added = neverThrow(false, [&] {
    const std::string name = safeName(viewOf(charset));
    if (name.empty() || looksLikeUtf16(html)) return true;
    std::size_t head = StructureFinder::find(html).head;
    if (head == kNowhere) {
      ensureStructure(html);
      head = StructureFinder::find(html).head;
    }
    if (head == kNowhere) return false;
    html.text().insert(head,
                       "<META http-equiv=\"Content-Type\" content=\"text/html; charset=" + name + "\">");
    return true;
  });
  if (!added) log.logError("Failed to add the charset META tag to the HTML.");
}

void _svHtmlHelp::removeCharsetMetaTag(StringBuffer& html, LogBase& log) {
  const bool removed = neverThrow(false, [&] {
    if (!looksLikeUtf16(html)) html.text() = withoutCharsetMetas(html);
    return true;
  });
  if (!removed) log.logError("Failed to remove the charset META tag from the HTML.");
}

}  // namespace mailtree
