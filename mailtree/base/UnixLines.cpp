#include "mailtree/base/UnixLines.h"

#include <bit>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mailtree {
namespace {

/// A text on its way to another place that is at least as large.
struct Copying {
  std::string_view rest;
  char* out;

  void copyByte() {
    *out++ = rest.front() == '\r' ? '\n' : rest.front();
    const bool isCrlf = rest.starts_with("\r\n");
    rest.remove_prefix(isCrlf ? 2 : 1);
  }

#if defined(__SSE2__)
  static constexpr std::size_t kWidth = sizeof(__m128i);

  /// Copies a block, of which only the bytes up to a CR count.
  void copyBlock() {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rest.data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    const auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r'))));
    const std::size_t before = found ? static_cast<std::size_t>(std::countr_zero(found)) : kWidth;
    rest.remove_prefix(before);
    out += before;
    if (found) copyByte();
  }
#endif
};

}  // namespace

std::string withUnixLines(std::string_view text) {
  std::string lines(text.size(), '\0');
  Copying copying{text, lines.data()};
#if defined(__SSE2__)
  while (copying.rest.size() >= Copying::kWidth) copying.copyBlock();
#endif
  while (!copying.rest.empty()) copying.copyByte();
  lines.resize(static_cast<std::size_t>(copying.out - lines.data()));
  return lines;
}

}  // namespace mailtree
