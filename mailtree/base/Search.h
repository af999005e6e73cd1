// base/Search.h - searches over bytes that strings and buffers share: substrings, line ends, line lengths.
//
// All are linear in the text, whatever the text and the wanted bytes are; none allocates or throws.
#pragma once

#include <cstddef>
#include <string_view>

namespace mailtree {

/// Position of the first `wanted` at or after `from`, npos when absent; an empty `wanted` is at `from`.
std::size_t findSubstring(std::string_view text, std::string_view wanted, std::size_t from = 0) noexcept;

/// Whether a CR without LF or an LF without CR stands somewhere.
bool hasBareLineEnd(std::string_view text) noexcept;

/// Bytes of the longest line. Lines end at LF; CR and LF do not count, so that a bare CR, which no transport
/// takes for a line end, cannot hide a long line. Returns as soon as a line longer than `enough` was seen.
std::size_t longestLine(std::string_view text, std::size_t enough = std::string_view::npos) noexcept;

/// Appends `text` to `out` with every `a` replaced by `b`, in one pass. `out` is any type with a bool
/// append(string_view).
/// @return how many were replaced; 0, with `out` to be thrown away, when there was none or memory ran out.
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
