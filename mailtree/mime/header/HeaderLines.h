// mime/header/HeaderLines.h - header lines: where they end and whether they begin a field.
#pragma once

#include <bit>
#include <cstddef>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"

namespace mailtree {

/// The end of the line that holds `from`: its line break, or the end of the text.
inline std::size_t endOfLine(std::string_view text, std::size_t from) noexcept {
  return findAny<'\n', '\r'>(text, from);
}

/// The beginning of the line after the line break at `end`. Line breaks: CRLF, LF, CR, and CR CR LF, which a
/// text converted twice has.
constexpr std::size_t afterLineBreak(std::string_view text, std::size_t end) noexcept {
  if (end >= text.size()) return text.size();
  if (text[end] == '\n') return end + 1;
  const std::string_view rest = text.substr(end + 1, 2);
  if (rest == "\r\n") return end + 3;
  return rest.starts_with('\n') ? end + 2 : end + 1;
}

/// A character of a field name (RFC 5322, 3.6.8).
constexpr bool isFieldNameChar(char c) noexcept { return c > ' ' && c < 0x7F && c != ':'; }

struct FieldStart {
  std::size_t nameSize = 0;  ///< 0: the line does not begin a field.
  std::size_t colon = 0;
};

/// The number of field-name characters at the beginning of the line.
inline std::size_t fieldNameSize(std::string_view line) noexcept {
  std::size_t at = 0;
#if defined(__SSE2__)
  constexpr std::size_t kWidth = sizeof(__m128i);
  for (; at + kWidth <= line.size(); at += kWidth) {
    const __m128i chars = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line.data() + at));
    const __m128i is8bitOrBlank = _mm_cmplt_epi8(chars, _mm_set1_epi8('!'));  // signed: 8-bit bytes are below
    const __m128i isOther =
        _mm_or_si128(_mm_cmpeq_epi8(chars, _mm_set1_epi8(':')), _mm_cmpeq_epi8(chars, _mm_set1_epi8(0x7F)));
    const auto ends = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(is8bitOrBlank, isOther)));
    if (ends) return at + static_cast<unsigned>(std::countr_zero(ends));
  }
#endif
  while (at < line.size() && isFieldNameChar(line[at])) ++at;
  return at;
}

/// Reads "name:" at the beginning of a line. Blanks before the colon are accepted (RFC 5322, 4.5).
inline FieldStart readFieldStart(std::string_view line) noexcept {
  const std::size_t nameSize = fieldNameSize(line);
  std::size_t at = nameSize;
  while (at < line.size() && isBlankAscii(line[at])) ++at;
  if (at == line.size() || line[at] != ':') return {};
  return {nameSize, at};
}

/// Whether a field is meaningless when empty, and then not written.
constexpr bool isOmittedWhenEmpty(std::string_view name) noexcept {
  return equalsNoCase(name, "Content-Type") || equalsNoCase(name, "Content-Transfer-Encoding");
}

/// Whether a field is empty and omitted for it. Most fields have a shorter name, and nearly all of the rest a
/// value, so the letters of the name are looked at last.
constexpr bool isOmittedAsEmpty(std::string_view name, std::string_view value) noexcept {
  constexpr std::size_t kShortestName = std::string_view("Content-Type").size();
  return name.size() >= kShortestName && trimLeft(value).empty() && isOmittedWhenEmpty(name);
}

/// Where the first field begins, if only empty or blank lines precede it; npos otherwise.
inline std::size_t findFirstField(std::string_view text) noexcept {
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size() && isSpaceAscii(text[at]); at = afterLineBreak(text, at)) {
    while (at < text.size() && isBlankAscii(text[at])) ++at;
    if (endOfLine(text, at) != at) return std::string_view::npos;
    begin = afterLineBreak(text, at);
  }
  const bool isField = readFieldStart(text.substr(begin, endOfLine(text, begin) - begin)).nameSize > 0;
  return isField ? begin : std::string_view::npos;
}

}  // namespace mailtree
