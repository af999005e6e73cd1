// base/Search.h - searches in bytes for strings and buffers: substrings, line breaks, line lengths.
//
// All are linear in the text for any input; none allocates or throws. The searches on every header and body
// examine 16 bytes at once if all target processors can; the portable versions give the same results.
#pragma once

#include <bit>
#include <cstddef>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mailtree {

/// Position of the first `wanted` at or after `from`, npos when absent; an empty `wanted` is at `from`.
std::size_t findSubstring(std::string_view text, std::string_view wanted, std::size_t from = 0) noexcept;
std::size_t findSubstringPortable(std::string_view text, std::string_view wanted,
                                  std::size_t from = 0) noexcept;

/// Position of the first byte at or after `from` that is one of `kWanted`; the text size when absent.
template <char... kWanted>
constexpr std::size_t findAnyPortable(std::string_view text, std::size_t from = 0) noexcept {
  while (from < text.size() && !((text[from] == kWanted) || ...)) ++from;
  return from < text.size() ? from : text.size();
}

/// The same for control characters, bytes of 0x80 and more, and `kWanted`.
template <char... kWanted>
constexpr std::size_t findUnprintablePortable(std::string_view text, std::size_t from = 0) noexcept {
  const auto isPrintable = [](char c) { return c >= ' ' && c < 0x7F; };
  while (from < text.size() && isPrintable(text[from]) && !((text[from] == kWanted) || ...)) ++from;
  return from < text.size() ? from : text.size();
}

#if defined(__SSE2__)
/// The first match at or after `from`.
/// @param matchesIn  sets those bytes of a block that match.
/// @param findAtEnd  finds the first match in a text that is shorter than a block.
template <class MatchesIn, class FindAtEnd>
inline std::size_t findInBlocks(std::string_view text, std::size_t from, MatchesIn matchesIn,
                                FindAtEnd findAtEnd) noexcept {
  constexpr std::size_t kWidth = sizeof(__m128i), kHalf = kWidth / 2;
  const auto hitsIn = [matchesIn](__m128i bytes) noexcept {
    return static_cast<unsigned>(_mm_movemask_epi8(matchesIn(bytes)));
  };
  const auto at = [text](std::size_t position) noexcept {
    return reinterpret_cast<const __m128i*>(text.data() + position);
  };
  const auto first = [](unsigned found) noexcept {
    return static_cast<std::size_t>(std::countr_zero(found));
  };
  if (from >= text.size()) return text.size();
  for (; text.size() - from >= kWidth; from += kWidth)
    if (const unsigned found = hitsIn(_mm_loadu_si128(at(from)))) return from + first(found);
  if (text.size() >= kWidth) {
    // The last block begins before `from`; matches there are ignored.
    const std::size_t last = text.size() - kWidth;
    const unsigned found = hitsIn(_mm_loadu_si128(at(last))) >> (from - last) << (from - last);
    return found ? last + first(found) : text.size();
  }
  if (text.size() - from >= kHalf) {
    // Two halves, which may overlap.
    const std::size_t last = text.size() - kHalf;
    const unsigned found = hitsIn(_mm_unpacklo_epi64(_mm_loadl_epi64(at(from)), _mm_loadl_epi64(at(last))));
    if (!found) return text.size();
    return first(found) < kHalf ? from + first(found) : last + first(found) - kHalf;
  }
  return findAtEnd(text, from);
}

template <char... kWanted>
inline __m128i equalBytes(__m128i bytes) noexcept {
  __m128i found = _mm_setzero_si128();
  ((found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(kWanted)))), ...);
  return found;
}

template <char... kWanted>
inline __m128i unprintableBytes(__m128i bytes) noexcept {
  const __m128i isLow = _mm_cmplt_epi8(bytes, _mm_set1_epi8(' '));  // bytes of 0x80 and more are negative
  return _mm_or_si128(isLow, equalBytes<'\x7F', kWanted...>(bytes));
}
#endif

template <char... kWanted>
inline std::size_t findAny(std::string_view text, std::size_t from = 0) noexcept {
#if defined(__SSE2__)
  return findInBlocks(text, from, equalBytes<kWanted...>, findAnyPortable<kWanted...>);
#else
  return findAnyPortable<kWanted...>(text, from);
#endif
}

template <char... kWanted>
inline std::size_t findUnprintable(std::string_view text, std::size_t from = 0) noexcept {
#if defined(__SSE2__)
  return findInBlocks(text, from, unprintableBytes<kWanted...>, findUnprintablePortable<kWanted...>);
#else
  return findUnprintablePortable<kWanted...>(text, from);
#endif
}

/// Whether there is a CR without LF or an LF without CR.
bool hasBareLineEnd(std::string_view text) noexcept;

/// Bytes of the longest line. Lines end at LF; CR and LF do not count. A bare CR, which no transport treats
/// as a line break, cannot hide a long line.
std::size_t longestLine(std::string_view text) noexcept;
/// Whether a line is longer than that. Where lines are short it looks at one of them in `size` bytes.
bool hasLineLongerThan(std::string_view text, std::size_t size) noexcept;

/// Appends `text` to `out` with every `a` replaced by `b`, in one pass. `out` is any type with a
/// bool append(string_view).
/// @return the number replaced; 0, with `out` unusable, when there was none or memory ran out.
template <class Buffer>
std::size_t replaceAllInto(Buffer& out, std::string_view text, std::string_view a, std::string_view b) {
  if (a.empty()) return 0;
  std::size_t count = 0, done = 0;
  for (std::size_t at; (at = findSubstring(text, a, done)) != std::string_view::npos;
       done = at + a.size(), ++count)
    if (!out.append(text.substr(done, at - done)) || !out.append(b)) return 0;
  if (count == 0) return 0;
  return out.append(text.substr(done)) ? count : 0;
}

}  // namespace mailtree
