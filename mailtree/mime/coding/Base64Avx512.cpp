#include "mailtree/mime/coding/Base64Internal.h"

#include "mailtree/mime/coding/Avx512Bytes.h"

#if MAILTREE_HAS_AVX2_PATH

#include <cstring>

// 64 digits at a time: one instruction looks up any of 64 or 128 table entries, and another one takes the six
// bits of each digit from their place. Lines of 76, the usual length in mail, are a block and a quarter.
//
// The file is compiled for any x86-64 processor; only the functions marked here may use the wider
// instructions, and they run only on a processor that has them.
namespace mailtree::base64 {
namespace {

using avx512::Bytes, avx512::kAll, avx512::kBlock, avx512::makeBytes;

constexpr std::size_t kBlockBytes = 48;  ///< The bytes they encode.

/// The intrinsic for this is another of those that GCC 12 warns of.
MAILTREE_AVX512 inline __m128i firstQuarter(__m512i bytes) noexcept {
  return __builtin_shufflevector(bytes, bytes, 0, 1);
}

// Encoding

/// Spreads triples of bytes from a place on: middle, low, high, middle byte of each, so the bits of every
/// digit are in one unit.
template <unsigned First>
constexpr Bytes kSpread = makeBytes([](unsigned i) {
  constexpr unsigned kOrder[4] = {1, 0, 2, 1};
  return First + i / 4 * 3 + kOrder[i % 4];
});

/// Where the digits of two spread triples begin in their 64 bits.
constexpr Bytes kDigitBits = makeBytes([](unsigned i) {
  constexpr unsigned kFirstBits[4] = {10, 4, 22, 16};
  return kFirstBits[i % 4] + i % 8 / 4 * 32;
});

constexpr Bytes kDigitOf = makeBytes([](unsigned value) { return kDigits[value]; });

/// The digits of bytes from a place on. An index is not masked: the table has an entry for any six bits.
template <unsigned First>
MAILTREE_AVX512 inline __m512i digitsOf(__m512i data) noexcept {
  const __m512i spread = _mm512_maskz_permutexvar_epi8(kAll, load(kSpread<First>), data);
  const __m512i values = _mm512_maskz_multishift_epi64_epi8(kAll, load(kDigitBits), spread);
  return _mm512_maskz_permutexvar_epi8(kAll, values, load(kDigitOf));
}

// Decoding

constexpr Bytes kValuesLow = makeBytes([](unsigned c) { return kDigitValues[c]; });
constexpr Bytes kValuesHigh = makeBytes([](unsigned c) { return kDigitValues[c + kBlock]; });

/// Packs groups of 24 bits, each in the low end of 32, into 48 bytes.
constexpr Bytes kGather = makeBytes([](unsigned i) { return i < kBlockBytes ? i / 3 * 4 + 2 - i % 3 : 0; });

/// Decodes a block and writes 16 bytes more; returns one bit per byte that is not a digit.
MAILTREE_AVX512 inline std::uint64_t decodeBlock(const char* p, std::uint8_t* out) noexcept {
  const __m512i text = _mm512_loadu_si512(p);
  const __m512i values = _mm512_permutex2var_epi8(load(kValuesLow), text, load(kValuesHigh));
  // First value times 64 plus second, then first pair times 4096 plus second.
  const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
  const __m512i groups = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
  _mm512_storeu_si512(out, _mm512_maskz_permutexvar_epi8(kAll, load(kGather), groups));
  return _cvtmask64_u64(_mm512_movepi8_mask(_mm512_or_si512(text, values)));
}

/// The same for a quarter of a block; writes 16 bytes, 12 of which count.
MAILTREE_AVX512 inline std::uint32_t decodeQuarter(const char* p, std::uint8_t* out) noexcept {
  // A masked load would be slower.
  const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m512i block = _mm512_zextsi128_si512(text);
  const __m128i values = firstQuarter(_mm512_permutex2var_epi8(load(kValuesLow), block, load(kValuesHigh)));
  const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
  const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
  const __m128i order = firstQuarter(load(kGather));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(groups, order));
  return _cvtmask16_u32(_mm_movepi8_mask(_mm_or_si128(text, values)));
}

constexpr std::size_t kMailLine = 76;
constexpr std::size_t kMailLineBytes = kMailLine / 4 * 3;
constexpr std::size_t kRestOfLine = kMailLine - kBlock;

/// A block stores 16 bytes too many: with this many digits more the store stays inside the output.
constexpr std::ptrdiff_t kMargin = 24;

template <std::size_t BreakSize>
MAILTREE_AVX512 Progress decodeLines(Progress at, const char* end) noexcept {
  constexpr std::size_t kStep = kMailLine + BreakSize;
  while (end - at.p >= std::ptrdiff_t{kStep} + kMargin) {
    const char* const lineEnd = at.p + kMailLine;
    if (BreakSize == 2 ? lineEnd[0] != '\r' || lineEnd[1] != '\n' : lineEnd[0] != '\n') break;
    const std::uint64_t wrong = decodeBlock(at.p, at.out);
    const std::uint32_t wrongRest = decodeQuarter(at.p + kBlock, at.out + kBlockBytes);
    if (wrong | (wrongRest & ((1U << kRestOfLine) - 1))) break;
    at.p += kStep;
    at.out += kMailLineBytes;
  }
  return at;
}

}  // namespace

MAILTREE_AVX512 Progress decodeMailLinesAvx512(Progress at, const char* end, std::size_t breakSize) noexcept {
  return breakSize == 2 ? decodeLines<2>(at, end) : decodeLines<1>(at, end);
}

MAILTREE_AVX512 Progress decodeBlocksAvx512(Progress at, const char* end) noexcept {
  while (end - at.p >= std::ptrdiff_t{kBlock} + kMargin && decodeBlock(at.p, at.out) == 0) {
    at.p += kBlock;
    at.out += kBlockBytes;
  }
  return at;
}

MAILTREE_AVX512 std::size_t encodeAvx512(const std::uint8_t* data, std::size_t size, char* out,
                                         std::size_t lineLength) noexcept {
  char* to = out;
  // A block of bytes is loaded where fewer are encoded.
  for (; lineLength == 0 && size >= kBlock; size -= kBlockBytes, data += kBlockBytes, to += kBlock)
    _mm512_storeu_si512(to, digitsOf<0>(_mm512_loadu_si512(data)));
  for (; lineLength == kMailLine && size >= kBlock; size -= kMailLineBytes, data += kMailLineBytes) {
    const __m512i bytes = _mm512_loadu_si512(data);
    _mm512_storeu_si512(to, digitsOf<0>(bytes));
    // Twelve digits, the break, and two bytes of the next line, which is written later.
    const __m128i rest = firstQuarter(digitsOf<kBlockBytes>(bytes));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + kBlock), _mm_insert_epi16(rest, '\n' << 8 | '\r', 6));
    to += kMailLine + 2;
  }
  return static_cast<std::size_t>(to - out) + encodeAvx2(data, size, to, lineLength);
}

}  // namespace mailtree::base64

#endif
