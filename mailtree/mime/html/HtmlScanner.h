// mime/html/HtmlScanner.h - the tokenizer of mime/html/Html.h and
// mime/html/HtmlPage.h; not included outside mime/.
//
// Follows the HTML standard as far as mail needs it: tags, quoted and unquoted attributes, comments, raw text
// elements, anything unterminated. Views point into the scanned text. Nothing allocates or throws.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Whether a table contains an element's name, ignoring case.
template <std::size_t N>
bool isOneOf(std::string_view name, const std::string_view (&names)[N]) noexcept {
  for (const std::string_view each : names)
    if (equalsNoCase(each, name)) return true;
  return false;
}

/// Whether the content of an element is raw text up to its own end tag.
bool isRawTextElement(std::string_view name) noexcept;

/// Whether an element may be in a head; any other start tag ends an open one.
bool isHeadElement(std::string_view name) noexcept;

/// Whether a page is unconverted utf-16, recognized by its NULs, which a tokenizer of bytes must not change.
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

/// Steps from markup to markup. Anything unterminated (a comment, a tag, the text of a
/// script) takes the rest of the page, as in a browser, and is reported as `unclosed`. Each
/// byte is examined a fixed number of times.
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

  /// Values are returned without their quotes, character references undecoded.
  bool next(std::string_view& name, std::string_view& value) noexcept;

 private:
  std::size_t nameLength() const noexcept;
  std::string_view takeValue() noexcept;
  std::string_view take(std::size_t length) noexcept;

  std::string_view m_rest;
};

/// The value of the first attribute of that name; empty when there is none.
std::string_view firstAttribute(const Markup& startTag, std::string_view wanted) noexcept;

}  // namespace mailtree
