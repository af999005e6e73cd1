#include "mailtree/mime/html/HtmlScanner.h"

#include <algorithm>

namespace mailtree {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

constexpr std::string_view kRawText[] = {"script", "style",   "title",    "textarea", "xmp",
                                         "iframe", "noembed", "noframes", "plaintext"};

constexpr std::string_view kHeadElements[] = {"html", "head",     "title",   "meta",  "link",
                                              "base", "basefont", "bgsound", "style", "script"};

}  // namespace

bool isHeadElement(std::string_view name) noexcept { return isOneOf(name, kHeadElements); }

bool isRawTextElement(std::string_view name) noexcept {
  return name.size() >= 3 && isOneOf(name, kRawText);  // most tags are shorter: p, b, a, td
}

std::optional<Markup> HtmlScanner::next() noexcept {
  while (true) {
    const std::size_t open = m_html.find('<', m_position);
    if (open == kNowhere || open + 1 >= m_html.size()) return std::nullopt;
    m_position = open + 1;
    const char c = m_html[open + 1];
    if (isAlphaAscii(c)) return tag(open, Markup::Kind::startTag, open + 1);
    if (c == '!') return declaration(open);
    if (c == '?') return upTo(open, ">", Markup::Kind::prologue);
    if (c != '/' || open + 2 >= m_html.size()) continue;
    if (isAlphaAscii(m_html[open + 2])) return tag(open, Markup::Kind::endTag, open + 2);
    return upTo(open, ">", Markup::Kind::comment);
  }
}

Markup HtmlScanner::closed(Markup::Kind kind, std::size_t begin, std::size_t end) noexcept {
  m_position = end;
  return {kind, begin, end, {}, {}};
}

Markup HtmlScanner::upTo(std::size_t begin, std::string_view terminator, Markup::Kind kind) noexcept {
  const std::size_t found = m_html.find(terminator, m_position);
  return found == kNowhere ? unclosed(begin) : closed(kind, begin, found + terminator.size());
}

// Ends at "-->", and at "--!>" as in browsers.
Markup HtmlScanner::comment(std::size_t begin) noexcept {
  for (std::size_t at = begin + 4; (at = m_html.find("--", at)) != kNowhere; ++at) {
    const std::string_view tail = m_html.substr(at + 2);
    if (tail.starts_with('>')) return closed(Markup::Kind::comment, begin, at + 3);
    if (tail.starts_with("!>")) return closed(Markup::Kind::comment, begin, at + 4);
  }
  return unclosed(begin);
}

Markup HtmlScanner::declaration(std::size_t begin) noexcept {
  const std::string_view rest = m_html.substr(begin);
  if (rest.starts_with("<!-->")) return closed(Markup::Kind::comment, begin, begin + 5);
  if (rest.starts_with("<!--->")) return closed(Markup::Kind::comment, begin, begin + 6);
  if (rest.starts_with("<!--")) return comment(begin);
  const bool isDoctype = beginsWithNoCase(rest, "<!doctype");
  return upTo(begin, ">", isDoctype ? Markup::Kind::prologue : Markup::Kind::comment);
}

Markup HtmlScanner::tag(std::size_t begin, Markup::Kind kind, std::size_t nameAt) noexcept {
  std::size_t nameEnd = nameAt;
  while (nameEnd < m_html.size() && !isSpaceAscii(m_html[nameEnd]) && m_html[nameEnd] != '/' &&
         m_html[nameEnd] != '>')
    ++nameEnd;
  const std::size_t close = findTagEnd(nameEnd);
  if (close == kNowhere) return unclosed(begin);

  Markup markup = closed(kind, begin, close + 1);
  markup.name = m_html.substr(nameAt, nameEnd - nameAt);
  markup.attributes = m_html.substr(nameEnd, close - nameEnd);
  if (kind == Markup::Kind::startTag && isRawTextElement(markup.name) && !skipRawText(markup.name))
    return unclosed(begin);
  return markup;
}

// A quote counts only where a value begins, after a name and "=": <p title=it's> and
// <a href=x?a="b> end at their first ">".
std::size_t HtmlScanner::findTagEnd(std::size_t at) const noexcept {
  bool hasName = false;
  while (at < m_html.size()) {
    const char c = m_html[at++];
    if (c == '>') return at - 1;
    if (c != '=' || !hasName) {
      if (!isSpaceAscii(c)) hasName = c != '/';
      continue;
    }
    at = valueEnd(at);
    if (at == kNowhere) return kNowhere;
    hasName = false;
  }
  return kNowhere;
}

// The position after the value that an "=" begins; kNowhere when its quote is unterminated.
std::size_t HtmlScanner::valueEnd(std::size_t at) const noexcept {
  while (at < m_html.size() && isSpaceAscii(m_html[at])) ++at;
  if (at < m_html.size() && (m_html[at] == '"' || m_html[at] == '\'')) {
    const std::size_t close = m_html.find(m_html[at], at + 1);
    return close == kNowhere ? kNowhere : close + 1;
  }
  while (at < m_html.size() && !isSpaceAscii(m_html[at]) && m_html[at] != '>') ++at;
  return at;
}

// Moves to the end tag; false when there is none.
bool HtmlScanner::skipRawText(std::string_view name) noexcept {
  for (std::size_t at = m_position; (at = m_html.find("</", at)) != kNowhere; at += 2) {
    const std::string_view rest = m_html.substr(at + 2);
    if (!beginsWithNoCase(rest, name) || rest.size() == name.size()) continue;
    const char after = rest[name.size()];
    if (!isSpaceAscii(after) && after != '/' && after != '>') continue;
    m_position = at;
    return findTagEnd(at + 2 + name.size()) != kNowhere;
  }
  return false;
}

bool AttributeReader::next(std::string_view& name, std::string_view& value) noexcept {
  while (!m_rest.empty() && (isSpaceAscii(m_rest.front()) || m_rest.front() == '/')) m_rest.remove_prefix(1);
  if (m_rest.empty()) return false;
  name = take(std::max<std::size_t>(1, nameLength()));  // a stray "=" begins a name
  value = {};
  const std::string_view afterName = trimLeft(m_rest);
  if (!afterName.starts_with('=')) return true;
  m_rest = trimLeft(afterName.substr(1));
  value = takeValue();
  return true;
}

std::size_t AttributeReader::nameLength() const noexcept {
  std::size_t length = 0;
  while (length < m_rest.size() && !isSpaceAscii(m_rest[length]) && m_rest[length] != '/' &&
         (m_rest[length] != '=' || length == 0))
    ++length;
  return length;
}

std::string_view AttributeReader::takeValue() noexcept {
  if (!m_rest.empty() && (m_rest.front() == '"' || m_rest.front() == '\'')) {
    const char quote = take(1).front();
    const std::string_view value = take(m_rest.find(quote));
    if (!m_rest.empty()) m_rest.remove_prefix(1);
    return value;
  }
  std::size_t length = 0;
  while (length < m_rest.size() && !isSpaceAscii(m_rest[length])) ++length;
  return take(length);
}

std::string_view AttributeReader::take(std::size_t length) noexcept {
  const std::string_view taken = m_rest.substr(0, length);
  m_rest.remove_prefix(taken.size());
  return taken;
}

std::string_view firstAttribute(const Markup& startTag, std::string_view wanted) noexcept {
  std::string_view name, value;
  for (AttributeReader attributes(startTag.attributes); attributes.next(name, value);)
    if (equalsNoCase(name, wanted)) return value;
  return {};
}

}  // namespace mailtree
