// base/Ascii.h - ASCII helpers: case, classes, compare, find, trim.
//
// Everything here is locale-independent and never throws; only lowerCase allocates. Bytes of 0x80 and above
// are neither letters nor blanks and equal only themselves, so utf-8 passes through unchanged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace mailtree {

/// A view of a C string; null counts as empty.
constexpr std::string_view viewOf(const char* text) noexcept {
  return text ? std::string_view(text) : std::string_view();
}

constexpr bool isUpperAscii(char c) noexcept { return c >= 'A' && c <= 'Z'; }
constexpr bool isLowerAscii(char c) noexcept { return c >= 'a' && c <= 'z'; }
constexpr bool isAlphaAscii(char c) noexcept { return isUpperAscii(c) || isLowerAscii(c); }
constexpr bool isDigitAscii(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool isAlnumAscii(char c) noexcept { return isAlphaAscii(c) || isDigitAscii(c); }
/// Space, tab, CR, LF, vertical tab, form feed.
constexpr bool isSpaceAscii(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
/// Space or tab, the white space of folded header lines.
constexpr bool isBlankAscii(char c) noexcept { return c == ' ' || c == '\t'; }
constexpr bool is8bit(char c) noexcept { return static_cast<unsigned char>(c) >= 0x80; }
/// C0 control or DEL.
constexpr bool isControlAscii(char c) noexcept { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

constexpr char toLowerAscii(char c) noexcept { return isUpperAscii(c) ? static_cast<char>(c + 32) : c; }
constexpr char toUpperAscii(char c) noexcept { return isLowerAscii(c) ? static_cast<char>(c - 32) : c; }
inline std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = toLowerAscii(c);
  return lower;
}

/// Value of a hexadecimal digit, -1 for anything else.
constexpr int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Eight characters at once, in any byte order.
constexpr std::uint64_t toLowerAscii8(std::uint64_t chars) noexcept {
  constexpr std::uint64_t kOneInEachByte = 0x0101010101010101;
  const std::uint64_t low = chars & (0x7F * kOneInEachByte);
  const std::uint64_t fromA = low + (0x80 - 'A') * kOneInEachByte;
  const std::uint64_t beyondZ = low + (0x7F - 'Z') * kOneInEachByte;
  const std::uint64_t upper = (fromA ^ beyondZ) & ~chars & (0x80 * kOneInEachByte);
  return chars | (upper >> 2);
}

/// Whether characters are equal but for their case, a word of them at once; there must be as many on both
/// sides.
template <class Word>
inline bool equalWordsNoCase(const char* a, const char* b) noexcept {
  Word left = 0, right = 0;
  std::memcpy(&left, a, sizeof left);
  std::memcpy(&right, b, sizeof right);
  return left == right || toLowerAscii8(left) == toLowerAscii8(right);
}

/// The same for any number, at least a word; the last word may overlap the one before.
template <class Word>
inline bool equalRunsNoCase(const char* a, const char* b, std::size_t size) noexcept {
  for (std::size_t i = 0; i + sizeof(Word) < size; i += sizeof(Word))
    if (!equalWordsNoCase<Word>(a + i, b + i)) return false;
  return equalWordsNoCase<Word>(a + size - sizeof(Word), b + size - sizeof(Word));
}

constexpr bool equalsNoCase(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  if (!std::is_constant_evaluated()) {
    if (a.size() >= sizeof(std::uint64_t))
      return equalRunsNoCase<std::uint64_t>(a.data(), b.data(), a.size());
    if (a.size() >= sizeof(std::uint32_t))
      return equalRunsNoCase<std::uint32_t>(a.data(), b.data(), a.size());
  }
  for (std::size_t i = 0; i < a.size(); ++i)
    if (toLowerAscii(a[i]) != toLowerAscii(b[i])) return false;
  return true;
}

constexpr bool beginsWithNoCase(std::string_view text, std::string_view prefix) noexcept {
  return text.size() >= prefix.size() && equalsNoCase(text.substr(0, prefix.size()), prefix);
}

constexpr bool endsWithNoCase(std::string_view text, std::string_view suffix) noexcept {
  return text.size() >= suffix.size() && equalsNoCase(text.substr(text.size() - suffix.size()), suffix);
}

/// Position of `wanted` in `text` ignoring case, npos when absent; an empty `wanted` is at 0.
constexpr std::size_t findNoCase(std::string_view text, std::string_view wanted) noexcept {
  if (wanted.size() > text.size()) return std::string_view::npos;
  for (std::size_t i = 0; i + wanted.size() <= text.size(); ++i)
    if (equalsNoCase(text.substr(i, wanted.size()), wanted)) return i;
  return std::string_view::npos;
}

constexpr bool containsNoCase(std::string_view text, std::string_view wanted) noexcept {
  return findNoCase(text, wanted) != std::string_view::npos;
}

constexpr bool contains(std::string_view text, std::string_view wanted) noexcept {
  return text.find(wanted) != std::string_view::npos;
}

constexpr std::string_view trimLeft(std::string_view text) noexcept {
  while (!text.empty() && isSpaceAscii(text.front())) text.remove_prefix(1);
  return text;
}

constexpr std::string_view trimRight(std::string_view text) noexcept {
  while (!text.empty() && isSpaceAscii(text.back())) text.remove_suffix(1);
  return text;
}

/// Without white space (isSpaceAscii) at both ends.
constexpr std::string_view trim(std::string_view text) noexcept { return trimLeft(trimRight(text)); }

/// The text after the last "/" or "\".
constexpr std::string_view baseName(std::string_view path) noexcept {
  const std::size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

/// Wildcard match of the whole text: "*" matches any run of bytes, including none. Linear
/// in practice, no recursion.
constexpr bool matchesWildcard(std::string_view text, std::string_view pattern, bool caseSensitive) noexcept {
  std::size_t t = 0, p = 0, star = std::string_view::npos, retry = 0;
  while (t < text.size()) {
    const bool same =
        p < pattern.size() &&
        (caseSensitive ? pattern[p] == text[t] : toLowerAscii(pattern[p]) == toLowerAscii(text[t]));
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      retry = t;
    } else if (same) {
      ++p, ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++retry;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

}  // namespace mailtree
