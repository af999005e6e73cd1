#include "mailtree/mime/html/CidReferences.h"

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/html/HtmlReferences.h"
#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {
namespace {

constexpr std::string_view kScheme = "cid:";
constexpr std::string_view kUrlAttributes[] = {"src",    "href",        "background", "poster", "data",
                                               "srcset", "imagesrcset", "style",      "lowsrc", "dynsrc"};
/// The longest relevant character reference, such as "&percnt;".
constexpr std::size_t kMaxReference = 10;

/// What may precede a reference: nothing, or the end of its introduction in a list or a style.
constexpr bool mayPrecede(char c) noexcept {
  return isSpaceAscii(c) || contains("\"'(,;", std::string_view(&c, 1));
}
/// Characters that end one. Not "@": "cid:image1.png@01D2" refers to another part.
constexpr bool mayEnd(char c) noexcept {
  return isSpaceAscii(c) || contains("\"'()<>,#", std::string_view(&c, 1));
}

/// The decoded bytes of a piece of markup, and its length in the markup.
struct Unit {
  std::string bytes;
  std::size_t length = 1;
};

Unit unitAt(std::string_view text, bool hasReferences) {
  if (text.front() == '&' && hasReferences) {
    const std::size_t semicolon = text.substr(0, kMaxReference).find(';');
    if (semicolon != std::string_view::npos)
      return {decodeReferences(text.substr(0, semicolon + 1)), semicolon + 1};
  }
  if (text.front() == '%' && text.size() > 2 && hexValue(text[1]) >= 0 && hexValue(text[2]) >= 0)
    return {std::string(1, static_cast<char>(hexValue(text[1]) * 16 + hexValue(text[2]))), 3};
  return {std::string(1, text.front()), 1};
}

/// The length of the spelling of the name at the beginning of the text; 0 when it does not begin with it.
std::size_t encodedLength(std::string_view text, std::string_view name, bool hasReferences) {
  if (text.starts_with(name)) return name.size();
  std::size_t at = 0;
  while (!name.empty()) {
    if (at == text.size()) return 0;
    const Unit unit = unitAt(text.substr(at), hasReferences);
    if (!name.starts_with(unit.bytes)) return 0;
    name.remove_prefix(unit.bytes.size());
    at += unit.length;
  }
  return at;
}

bool endsReference(std::string_view rest, bool hasReferences) {
  if (rest.empty() || mayEnd(rest.front())) return true;
  return rest.front() == '&' && mayEnd(unitAt(rest, hasReferences).bytes.front());
}

bool hasUrls(std::string_view attribute) noexcept {
  const std::size_t colon = attribute.rfind(':');  // "xlink:href", "o:href"
  return isOneOf(colon == std::string_view::npos ? attribute : attribute.substr(colon + 1), kUrlAttributes);
}

/// The Content-ID in an attribute with one URL, decoded; nothing when it is no such URL.
std::optional<std::string> cidIn(std::string_view attribute) {
  const std::string url = urlOfReference(attribute);
  if (!beginsWithNoCase(url, kScheme)) return std::nullopt;
  std::string id;
  for (std::string_view rest = std::string_view(url).substr(kScheme.size()); !endsReference(rest, false);) {
    const Unit unit = unitAt(rest, /*hasReferences=*/false);
    id += unit.bytes;
    rest.remove_prefix(unit.length);
  }
  return id;
}

class Rewriter {
 public:
  Rewriter(std::string_view html, const std::vector<CidTarget>& targets, std::string& out)
      : m_html(html), m_targets(targets), m_out(out) {}

  std::size_t run() {
    scan(m_html, /*inComment=*/false);
    m_out.append(m_html.substr(m_done));
    return m_count;
  }

 private:
  void scan(std::string_view text, bool inComment) {
    HtmlScanner scanner(text);
    std::size_t styleFrom = std::string_view::npos;
    while (const std::optional<Markup> markup = scanner.next()) {
      if (styleFrom < markup->begin)
        rewrite(text.substr(styleFrom, markup->begin - styleFrom), /*hasReferences=*/false);
      styleFrom = markup->isStartOf("style") ? markup->end : std::string_view::npos;
      if (markup->kind == Markup::Kind::startTag) scanAttributes(markup->attributes);
      // Conditional comments hold markup for one mail program; comments do not nest.
      if (markup->kind == Markup::Kind::comment && !inComment)
        scan(text.substr(markup->begin + 1, markup->end - markup->begin - 1), /*inComment=*/true);
    }
  }

  void scanAttributes(std::string_view attributes) {
    AttributeReader reader(attributes);
    std::string_view name, value;
    while (reader.next(name, value))
      if (hasUrls(name)) rewrite(value, /*hasReferences=*/true);
  }

  void rewrite(std::string_view text, bool hasReferences) {
    for (std::size_t colon = text.find(':'); colon != std::string_view::npos;
         colon = text.find(':', colon + 1)) {
      const std::size_t afterScheme = colon + 1;
      if (!endsWithNoCase(text.substr(0, afterScheme), kScheme)) continue;
      const std::size_t begin = afterScheme - kScheme.size();
      if (begin > 0 && !mayPrecede(text[begin - 1])) continue;
      if (static_cast<std::size_t>(text.data() - m_html.data()) + afterScheme < m_done)
        continue;  // part of a name
      redirect(text.substr(afterScheme), hasReferences);
    }
  }

  void redirect(std::string_view reference, bool hasReferences) {
    for (const CidTarget& target : m_targets) {
      const std::size_t length = encodedLength(reference, target.name, hasReferences);
      if (length == 0 || !endsReference(reference.substr(length), hasReferences)) continue;
      const auto at = static_cast<std::size_t>(reference.data() - m_html.data());
      m_out.append(m_html.substr(m_done, at - m_done)).append(cidUrlPart(target.contentId));
      m_done = at + length;
      ++m_count;
      return;
    }
  }

  std::string_view m_html;
  const std::vector<CidTarget>& m_targets;
  std::string& m_out;
  std::size_t m_done = 0;  ///< The page is in `out` up to here.
  std::size_t m_count = 0;
};

}  // namespace

std::size_t redirectCidReferences(std::string_view html, const std::vector<CidTarget>& targets,
                                  std::string& out) {
  out.clear();
  if (!looksLikeUtf16(html)) return Rewriter(html, targets, out).run();
  out = html;
  return 0;
}

std::vector<std::string> cidReferencesIn(std::string_view html) {
  std::vector<std::string> references;
  HtmlScanner scanner(html);
  while (const std::optional<Markup> markup = scanner.next()) {
    if (markup->kind != Markup::Kind::startTag) continue;
    std::string_view name, value;
    for (AttributeReader reader(markup->attributes); reader.next(name, value);)
      if (std::optional<std::string> reference = hasUrls(name) ? cidIn(value) : std::nullopt)
        references.push_back(*std::move(reference));
  }
  return references;
}

std::string cidUrlPart(std::string_view contentId) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string url;
  for (const char c : contentId) {
    if (isAlnumAscii(c) || contains("-._~@!$*+=", std::string_view(&c, 1))) {
      url += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    url.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
  }
  return url;
}

}  // namespace mailtree
