#include "mailtree/mime/coding/QuotedPrintableInternal.h"

#if MAILTREE_HAS_AVX2_PATH

#include <immintrin.h>

#include <algorithm>
#include <cstring>

// 64 bytes at a time, with one bit for each byte that is not copied. A bit costs a few instructions, a block
// without any almost none.
//
// The file is compiled for any x86-64 processor; only the functions marked here may use the wider
// instructions, and they run only on a processor that has them.
namespace mailtree::quotedPrintable {
namespace {

constexpr std::size_t kHalf = 32;
constexpr std::size_t kBlock = 2 * kHalf;

MAILTREE_AVX2 inline __m256i load(const char* p) noexcept {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

MAILTREE_AVX2 inline void store(void* to, __m256i bytes) noexcept {
  _mm256_storeu_si256(static_cast<__m256i*>(to), bytes);
}

MAILTREE_AVX2 inline std::uint32_t bitsOf(__m256i bytes) noexcept {
  return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

MAILTREE_AVX2 inline unsigned lowestBit(std::uint64_t bits) noexcept {
  return static_cast<unsigned>(_tzcnt_u64(bits));
}

/// Copies a block; only half of it when no more is wanted.
MAILTREE_AVX2 inline void copyBlock(const char* from, void* to, std::size_t wanted) noexcept {
  store(to, load(from));
  if (wanted > kHalf) store(static_cast<char*>(to) + kHalf, load(from + kHalf));
}

/// One bit per "=".
MAILTREE_AVX2 inline std::uint64_t equalsIn(const char* p) noexcept {
  const __m256i equals = _mm256_set1_epi8('=');
  const std::uint64_t high = bitsOf(_mm256_cmpeq_epi8(load(p + kHalf), equals));
  return high << kHalf | bitsOf(_mm256_cmpeq_epi8(load(p), equals));
}

/// One bit per byte that is not literal.
MAILTREE_AVX2 inline std::uint32_t nonLiteralsIn(__m256i text) noexcept {
  // Adding one makes the byte after "~" negative, like all bytes with the top bit set.
  const __m256i printable =
      _mm256_cmpgt_epi8(_mm256_add_epi8(text, _mm256_set1_epi8(1)), _mm256_set1_epi8(' '));
  const __m256i plain = _mm256_andnot_si256(_mm256_cmpeq_epi8(text, _mm256_set1_epi8('=')), printable);
  return ~bitsOf(_mm256_or_si256(plain, _mm256_cmpeq_epi8(text, _mm256_set1_epi8('\t'))));
}

/// The position of decoding. Passed by value: references would keep both pointers in
/// memory and store them after each step.
struct Progress {
  const char* p;
  std::uint8_t* out;
};

/// Rare, and kept out of the fast path because it takes addresses.
[[gnu::noinline]] Progress decodeUncommon(Progress at, const char* end) noexcept {
  decodeNonEscape(at.p, end, at.out);
  return at;
}

/// Decodes the text at a "=": mostly consecutive escapes, or a soft line break.
MAILTREE_AVX2 inline Progress decodeFromEquals(Progress at, const char* end) noexcept {
  if (at.p[1] == '\r' && at.p[2] == '\n') return {at.p + kEscapeSize, at.out};
  const char* const begin = at.p;
  while (end - at.p >= std::ptrdiff_t{kEscapeSize} && *at.p == '=') {
    const std::uint16_t value = hexPair(at.p + 1);
    if (value >= kNoHex) break;
    *at.out++ = static_cast<std::uint8_t>(value);
    at.p += kEscapeSize;
  }
  return at.p == begin ? decodeUncommon(at, end) : at;
}

/// Decodes one block and moves on, beyond its end when an escape or soft break crosses it.
MAILTREE_AVX2 inline Progress decodeBlock(Progress at, const char* end) noexcept {
  const char* const block = at.p;
  std::uint64_t equals = equalsIn(block);
  while (equals) {
    const char* const next = block + lowestBit(equals);
    const std::size_t plain = static_cast<std::size_t>(next - at.p);
    copyBlock(at.p, at.out, plain);
    at = decodeFromEquals({next, at.out + plain}, end);
    const std::size_t done = static_cast<std::size_t>(at.p - block);
    if (done >= kBlock) return at;
    equals &= ~std::uint64_t{0} << done;
  }
  const std::size_t plain = kBlock - static_cast<std::size_t>(at.p - block);
  copyBlock(at.p, at.out, plain);
  return {at.p + plain, at.out + plain};
}

}  // namespace

MAILTREE_AVX2 Recoded decodeBlockAvx2(std::string_view text, std::uint8_t* out) noexcept {
  const Progress reached = decodeBlock({text.data(), out}, text.data() + text.size());
  return {static_cast<std::size_t>(reached.p - text.data()), static_cast<std::size_t>(reached.out - out)};
}

MAILTREE_AVX2 std::size_t decodeAvx2(std::string_view text, std::uint8_t* out) noexcept {
  const char* const end = text.data() + text.size();
  Progress at{text.data(), out};
  // A block is copied from its last "=" on; the output has as much room as there is text.
  while (end - at.p >= std::ptrdiff_t{2 * kBlock}) at = decodeBlock(at, end);
  const std::size_t rest = static_cast<std::size_t>(end - at.p);
  return static_cast<std::size_t>(at.out - out) + decodePortable(std::string_view(at.p, rest), at.out);
}

namespace {

/// Four bytes, each text or escape.
constexpr std::size_t kGroup = 4;
constexpr std::size_t kLayouts = 1 << kGroup;

/// How a group is encoded: selects from four bytes, their high digits, their low digits and "=". Indexed by
/// one bit per byte to escape.
struct Layout {
  std::array<std::array<std::uint8_t, 16>, kLayouts> order;
  std::array<std::uint8_t, kLayouts> size;
};

constexpr Layout kLayout = [] {
  constexpr std::uint8_t kUpper = 4, kLower = 8, kEquals = 12;
  Layout layout{};
  for (unsigned escapes = 0; escapes < kLayouts; ++escapes) {
    auto& order = layout.order[escapes];
    std::uint8_t n = 0;
    for (std::uint8_t i = 0; i < kGroup; ++i) {
      const bool escaped = escapes >> i & 1;
      order[n++] = escaped ? kEquals : i;
      if (!escaped) continue;
      order[n++] = static_cast<std::uint8_t>(kUpper + i);
      order[n++] = static_cast<std::uint8_t>(kLower + i);
    }
    layout.size[escapes] = n;
  }
  return layout;
}();

MAILTREE_AVX2 inline char* putGroup(__m128i group, std::uint32_t escapes, char* to) noexcept {
  const auto& order = kLayout.order[escapes % kLayouts];
  const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(order.data()));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_shuffle_epi8(group, shuffle));
  return to + kLayout.size[escapes % kLayouts];
}

/// Encodes 16 bytes; the bits mark those to escape.
MAILTREE_AVX2 inline char* putSixteen(__m128i text, std::uint32_t escapes, char* to) noexcept {
  const __m128i digits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kUpperHex));
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i upper = _mm_shuffle_epi8(digits, _mm_and_si128(_mm_srli_epi32(text, 4), nibble));
  const __m128i lower = _mm_shuffle_epi8(digits, _mm_and_si128(text, nibble));
  const __m128i equals = _mm_set1_epi8('=');
  const __m128i firstTwo = _mm_unpacklo_epi32(text, upper), firstEnds = _mm_unpacklo_epi32(lower, equals);
  const __m128i lastTwo = _mm_unpackhi_epi32(text, upper), lastEnds = _mm_unpackhi_epi32(lower, equals);
  to = putGroup(_mm_unpacklo_epi64(firstTwo, firstEnds), escapes, to);
  to = putGroup(_mm_unpackhi_epi64(firstTwo, firstEnds), escapes >> kGroup, to);
  to = putGroup(_mm_unpacklo_epi64(lastTwo, lastEnds), escapes >> 2 * kGroup, to);
  return putGroup(_mm_unpackhi_epi64(lastTwo, lastEnds), escapes >> 3 * kGroup, to);
}

/// Encodes 32 bytes with few escapes: the text between them is copied whole.
MAILTREE_AVX2 inline void putSparse(const char* p, std::uint32_t escapes, char* to) noexcept {
  for (const char* const begin = p; escapes; escapes &= escapes - 1) {
    const char* const at = begin + lowestBit(escapes);
    store(to, load(p));
    to += at - p;
    to = putCode(*at, to);
    p = at + 1;
  }
  store(to, load(p));
}

constexpr int kFew = 3;  ///< Up to so many escapes in 32 bytes, encoding them one by one is cheaper.

/// Encodes `size` of 32 bytes; reads 32 bytes after them too.
MAILTREE_AVX2 inline void putHalf(const char* p, __m256i text, std::size_t size, std::uint32_t escapes,
                                  char* to) noexcept {
  if (_mm_popcnt_u32(escapes) <= kFew) return putSparse(p, escapes, to);
  to = putSixteen(_mm256_castsi256_si128(text), escapes, to);
  if (size > kHalf / 2) putSixteen(_mm256_extracti128_si256(text, 1), escapes >> 16, to);
}

}  // namespace

MAILTREE_AVX2 char* encodeUnbrokenAvx2(std::string_view bytes, std::size_t readable, char* to) noexcept {
  const char* p = bytes.data();
  const char* const end = p + bytes.size();
  const char* const readableEnd = p + readable;
  while (p < end && readableEnd - p >= std::ptrdiff_t{2 * kHalf}) {
    // Bytes after the end are encoded too, as text; the output size of the bytes
    // before the end is known without counting.
    const std::size_t size = std::min(kHalf, static_cast<std::size_t>(end - p));
    const __m256i text = load(p);
    const std::uint32_t escapes = nonLiteralsIn(text) & static_cast<std::uint32_t>((1ULL << size) - 1);
    putHalf(p, text, size, escapes, to);
    to += size + (kEscapeSize - 1) * static_cast<std::size_t>(_mm_popcnt_u32(escapes));
    p += size;
  }
  return encodeUnbrokenPortable(std::string_view(p, static_cast<std::size_t>(end - p)), to);
}

MAILTREE_AVX2 std::size_t plainLinesAvx2(std::string_view text) noexcept {
  constexpr std::size_t kReach = 3 * kHalf;  // a line, its break, and the rest of a block
  const char* p = text.data();
  const char* const end = p + text.size();
  while (end - p >= std::ptrdiff_t{kReach}) {
    const std::uint64_t first =
        std::uint64_t{nonLiteralsIn(load(p + kHalf))} << kHalf | nonLiteralsIn(load(p));
    const std::size_t length =
        first ? lowestBit(first)
              : kBlock + lowestBit(std::uint64_t{nonLiteralsIn(load(p + kBlock))} | 1ULL << kHalf);
    if (length > kMaxLine || p[length] != '\r' || p[length + 1] != '\n') break;
    if (length && (isBlankAscii(p[length - 1]) || needsEscapedStart(std::string_view(p, length)))) break;
    p += length + kBreak.size();
  }
  const std::size_t done = static_cast<std::size_t>(p - text.data());
  return end - p >= std::ptrdiff_t{kReach} ? done : done + plainLinesPortable(text.substr(done));
}

}  // namespace mailtree::quotedPrintable

#endif
