#include "mailtree/base/ShownText.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

struct Range {
  char32_t first, last;
};

/// The ranges are in order.
bool isIn(char32_t c, const auto& ranges) {
  for (const Range& range : ranges)
    if (c <= range.last) return c >= range.first;
  return false;
}

/// Characters that change how a terminal draws what follows, or that are invisible: C0, DEL, C1, soft
/// hyphens, line and paragraph separators, bidirectional controls, zero-width marks, interlinear marks, tag
/// characters. Words and emoji need U+200C and U+200D, which stay.
// Deliberate: the flags of England, Scotland and Wales, spelled in tag characters, are lost: tag characters
// could hide whole sentences.
constexpr Range kUnsafe[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x061C, 0x061C},
                             {0x180E, 0x180E}, {0x200B, 0x200B}, {0x200E, 0x200F}, {0x2028, 0x202E},
                             {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};

/// Characters that look like a square bracket in some typefaces.
constexpr Range kBracketLike[] = {{0x2045, 0x2046}, {0x23A1, 0x23A6}, {0x2772, 0x2773}, {0x27E6, 0x27E7},
                                  {0x2983, 0x2998}, {0x2E22, 0x2E25}, {0x3010, 0x3011}, {0x3014, 0x301B},
                                  {0xFF3B, 0xFF3B}, {0xFF3D, 0xFF3D}};

/// All blank characters of Unicode.
constexpr Range kBlanks[] = {{0x20, 0x20},     {0xA0, 0xA0},     {0x1680, 0x1680}, {0x2000, 0x200A},
                             {0x202F, 0x202F}, {0x205F, 0x205F}, {0x2800, 0x2800}, {0x3000, 0x3000},
                             {0x3164, 0x3164}, {0xFFA0, 0xFFA0}};

constexpr std::size_t kLongestWord = 80;

/// Whether the text has two blanks in a row or one at an end, as between the columns of a table.
bool hasGap(std::string_view text) {
  bool afterBlank = true;
  for (std::size_t at = 0; at < text.size();) {
    const bool isBlank = isIn(nextCodePoint(text, at), kBlanks);
    if (isBlank && afterBlank) return true;
    afterBlank = isBlank;
  }
  return afterBlank;
}

/// Appends one line; unsafe characters become U+FFFD.
void appendHarmless(std::string& out, std::string_view text, std::string_view tab) {
  for (std::size_t at = 0;;) {
    const std::size_t begin = findUnprintable(text, at);
    out.append(text, at, begin - at);
    if (begin == text.size()) return;
    at = begin;
    const char32_t c = nextCodePoint(text, at);
    if (c == '\t')
      out += tab;
    else if (isHarmless(c))
      out.append(text, begin, at - begin);
    else
      appendUtf8(out, kReplacementCharacter);
  }
}

}  // namespace

bool isHarmless(char32_t c) { return c != kReplacementCharacter && !isIn(c, kUnsafe); }

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  appendHarmless(out, text, " ");
  return out;
}

std::string printableLines(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    appendHarmless(out, line, "\t");
    out += '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out;
}

std::string inQuotes(std::string_view text) {
  const std::string shown = printable(text);
  std::string out = "\"";
  for (std::size_t at = 0; at < shown.size();) {
    const std::size_t begin = at;
    const char32_t c = nextCodePoint(shown, at);
    if (isIn(c, kBracketLike)) {
      std::array<char, 16> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u{%x}", static_cast<unsigned>(c));
      out += escape.data();
      continue;
    }
    if (c < 0x80 && contains("\"\\[]", std::string_view(&shown[begin], 1))) out += '\\';
    out.append(shown, begin, at - begin);
  }
  return out += '"';
}

std::string wordOrQuoted(std::string_view text) {
  const bool isWord = !text.empty() && text.size() <= kLongestWord && std::ranges::all_of(text, [](char c) {
    return c > ' ' && c < '\x7F' && std::string_view("\"\\[](){}<>,;:`").find(c) == std::string_view::npos;
  });
  return isWord ? std::string(text) : inQuotes(text);
}

std::string cellOrQuoted(std::string_view text) {
  const std::string shown = printable(text);
  const bool isCell = !hasGap(shown) && shown != "-" && shown.find_first_of("\"\\[]") == std::string::npos;
  return isCell ? shown : inQuotes(text);
}

std::string singleSpaced(std::string_view text) {
  const std::string shown = printable(text);
  std::string out;
  for (std::size_t at = 0; at < shown.size();) {
    const std::size_t begin = at;
    const bool isBlank = isIn(nextCodePoint(shown, at), kBlanks);
    if (!isBlank)
      out.append(shown, begin, at - begin);
    else if (!out.empty() && !out.ends_with(' '))
      out += ' ';
  }
  return out;
}

}  // namespace mailtree
