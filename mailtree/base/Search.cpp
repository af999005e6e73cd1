#include "mailtree/base/Search.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace mailtree {
namespace {

std::size_t lengthWithoutCr(std::string_view line) noexcept {
  return line.size() - static_cast<std::size_t>(std::count(line.begin(), line.end(), '\r'));
}

/// Whether CR at i-1 and LF at i do not occur together for some i in [1, size).
bool disagrees(const char* bytes, std::size_t size) noexcept {
  unsigned char bad = 0;
  for (std::size_t i = 1; i < size; ++i)
    bad |= static_cast<unsigned char>((bytes[i - 1] == '\r') != (bytes[i] == '\n'));
  return bad != 0;
}

#if defined(__SSE2__)

/// Up to this size comparing at every position is cheap, and the search stays linear.
constexpr std::size_t kShortWanted = 16;

/// Compares 16 positions at once with the first and the last byte of `wanted`, and the
/// whole where both match.
std::size_t findShort(std::string_view text, std::string_view wanted, std::size_t from) noexcept {
  constexpr std::size_t kWidth = sizeof(__m128i);
  const __m128i first = _mm_set1_epi8(wanted.front()), last = _mm_set1_epi8(wanted.back());
  const auto load = [text](std::size_t at) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
  };
  const std::size_t toLast = wanted.size() - 1;
  const auto findAmong16 = [&](std::size_t at) noexcept {
    const __m128i both =
        _mm_and_si128(_mm_cmpeq_epi8(load(at), first), _mm_cmpeq_epi8(load(at + toLast), last));
    for (auto found = static_cast<unsigned>(_mm_movemask_epi8(both)); found; found &= found - 1) {
      const std::size_t place = at + static_cast<unsigned>(std::countr_zero(found));
      if (std::memcmp(text.data() + place, wanted.data(), wanted.size()) == 0) return place;
    }
    return std::string_view::npos;
  };
  if (text.size() - from < toLast + kWidth) return findSubstringPortable(text, wanted, from);
  const std::size_t lastBlock = text.size() - toLast - kWidth;
  for (; from < lastBlock; from += kWidth)
    if (const std::size_t found = findAmong16(from); found != std::string_view::npos) return found;
  return findAmong16(lastBlock);  // some of its positions were searched before, without a match
}

#endif

}  // namespace

std::size_t findSubstringPortable(std::string_view text, std::string_view wanted, std::size_t from) noexcept {
#if defined(__GLIBC__)
  // Its memmem is linear even when both texts come from the same hostile message; string_view::find is not.
  if (from > text.size()) return std::string_view::npos;
  if (wanted.empty()) return from;
  // An empty text may have a null pointer.
  if (wanted.size() > text.size() - from) return std::string_view::npos;
  const void* const found = memmem(text.data() + from, text.size() - from, wanted.data(), wanted.size());
  return found ? static_cast<std::size_t>(static_cast<const char*>(found) - text.data())
               : std::string_view::npos;
#else
  return text.find(wanted, from);
#endif
}

std::size_t findSubstring(std::string_view text, std::string_view wanted, std::size_t from) noexcept {
#if defined(__SSE2__)
  const bool isShort = wanted.size() >= 2 && wanted.size() <= kShortWanted;
  if (isShort && from < text.size()) return findShort(text, wanted, from);
#endif
  return findSubstringPortable(text, wanted, from);
}

bool hasBareLineEnd(std::string_view text) noexcept {
  if (text.empty()) return false;
  if (text.front() == '\n' || text.back() == '\r') return true;
  // Blocks of fixed size: the compiler turns the comparison into vector code, and a hit near the start ends
  // it early. Adjacent blocks share one byte.
  constexpr std::size_t kBlock = 257;
  std::size_t at = 0;
  for (; text.size() - at >= kBlock; at += kBlock - 1)
    if (disagrees(text.data() + at, kBlock)) return true;
  return disagrees(text.data() + at, text.size() - at);
}

std::size_t longestLine(std::string_view text) noexcept {
  std::size_t longest = 0;
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\n'), text.size());
    if (size > longest) longest = std::max(longest, lengthWithoutCr(text.substr(0, size)));
    text.remove_prefix(std::min(size + 1, text.size()));
  }
  return longest;
}

bool hasLineLongerThan(std::string_view text, std::size_t size) noexcept {
  while (text.size() > size) {
    std::size_t end = text.rfind('\n', size);  // of the last line that ends soon enough
    if (end == std::string_view::npos) {
      end = std::min(text.find('\n', size), text.size());
      if (lengthWithoutCr(text.substr(0, end)) > size) return true;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return false;
}

}  // namespace mailtree
