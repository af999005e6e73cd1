// mime/html/HtmlScanner.h - the tokenizer under mime/html/Html.h and mime/html/HtmlPage.h; not included outside mime/.
//
// After the HTML standard's rules, as far as mail needs them: tags, quoted and unquoted attributes, comments,
// raw text elements, unclosed everything. Views point into the scanned text. Nothing allocates or throws.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Whether an element's name is in a table, ignoring case.
template <std::size_t N>
bool isOneOf(std::string_view name, const std::string_view (&names)[N]) noexcept {
  for (const std::string_view each : names)
    if (equalsNoCase(each, name)) return true;
  return false;
}

/// Whether the content of an element is text up to its own end tag, whatever it looks like.
bool isRawTextElement(std::string_view name) noexcept;

/// Whether a page is utf-16 that nobody converted, known by its NULs: no tokenizer of bytes may touch it.
inline bool looksLikeUtf16(std::string_view html) noexcept {
  return html.find('\0') != std::string_view::npos;
}

/// One piece of a page that is not text.
struct Markup {
  enum class Kind { startTag, endTag, prologue, comment, unclosed };  // prologue: doctype or XML declaration
  Kind kind = Kind::comment;
  std::size_t begin = 0, end = 0;  ///< In the text; of a raw text element, `end` is that of its start tag.
  std::string_view name;           ///< Of tags.
  std::string_view attributes;     ///< Of start tags.

  bool isStartOf(std::string_view element) const noexcept {
    return kind == Kind::startTag && equalsNoCase(name, element);
  }
  bool isEndOf(std::string_view element) const noexcept {
    return kind == Kind::endTag && equalsNoCase(name, element);
  }
};

/// Steps from markup to markup. What is never closed (a comment, a tag, the text of a script) takes all the
/// rest, as in a browser, and is reported as `unclosed`; each byte is looked at a fixed number of times.
class HtmlScanner {
 public:
  explicit HtmlScanner(std::string_view html) noexcept : m_html(html) {}

  std::optional<Markup> next() noexcept;

 private:
  Markup closed(Markup::Kind kind, std::size_t begin, std::size_t end) noexcept;
  Markup unclosed(std::size_t begin) noexcept { return closed(Markup::Kind::unclosed, begin, m_html.size()); }
  Markup upTo(std::size_t begin, std::string_view terminator, Markup::Kind kind) noexcept;
  Markup declaration(std::size_t begin) noexcept;
  Markup comment(std::size_t begin) noexcept;
  Markup tag(std::size_t begin, Markup::Kind kind, std::size_t nameAt) noexcept;
  std::size_t findTagEnd(std::size_t at) const noexcept;
  std::size_t valueEnd(std::size_t at) const noexcept;
  bool skipRawText(std::string_view name) noexcept;

  std::string_view m_html;
  std::size_t m_position = 0;
};

/// Steps through the attributes of a start tag.
class AttributeReader {
 public:
  explicit AttributeReader(std::string_view attributes) noexcept : m_rest(attributes) {}

  /// Values come as they stand, without their quotes, character references undecoded.
  bool next(std::string_view& name, std::string_view& value) noexcept;

 private:
  std::size_t nameLength() const noexcept;
  std::string_view takeValue() noexcept;
  std::string_view take(std::size_t length) noexcept;

  std::string_view m_rest;
};

}  // namespace mailtree
