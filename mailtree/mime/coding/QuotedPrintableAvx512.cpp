#include "mailtree/mime/coding/QuotedPrintableInternal.h"

#include "mailtree/mime/coding/Avx512Bytes.h"

#if MAILTREE_HAS_AVX2_PATH

#include <algorithm>

// 64 bytes at a time, with one bit for each byte in a mask. Bytes that have no place in the output are
// squeezed out of the register by one instruction, so dense escapes cost no more than few.
//
// The file is compiled for any x86-64 processor; only the functions marked here may use the wider
// instructions, and they run only on a processor that has them.
namespace mailtree::quotedPrintable {
namespace {

using avx512::Bytes, avx512::kAll, avx512::kBlock, avx512::makeBytes;

MAILTREE_AVX512 inline __m512i load(const char* p) noexcept { return _mm512_loadu_si512(p); }

/// One bit for each byte that is `c`.
MAILTREE_AVX512 inline std::uint64_t findIn(__m512i text, char c) noexcept {
  return _cvtmask64_u64(_mm512_cmpeq_epi8_mask(text, _mm512_set1_epi8(c)));
}

/// The lowest `count` bits, all of them for 64.
MAILTREE_AVX512 inline std::uint64_t lowest(std::uint64_t bits, std::size_t count) noexcept {
  return _bzhi_u64(bits, static_cast<unsigned>(count));
}

MAILTREE_AVX512 inline std::size_t countOf(std::uint64_t bits) noexcept {
  return static_cast<std::size_t>(_mm_popcnt_u64(bits));
}

/// The position of the lowest bit, 64 when there is none.
MAILTREE_AVX512 inline std::size_t firstOf(std::uint64_t bits) noexcept {
  return static_cast<std::size_t>(_tzcnt_u64(bits));
}

// Encoding

/// Bytes that are encoded at once: the longest result, three for each, fits into a register.
constexpr std::size_t kGroup = kBlock / kEscapeSize;

constexpr __mmask32 kAllPairs = ~std::uint32_t{0};

/// The bit of every group member's first character, in a register where each member has kEscapeSize places.
constexpr std::uint64_t kStarts = [] {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < kGroup; ++i) bits |= std::uint64_t{1} << kEscapeSize * i;
  return bits;
}();

/// Gives each member of a block's first, second or third group its places.
template <std::size_t Group>
constexpr Bytes kTriples = makeBytes([](unsigned place) { return Group * kGroup + place / kEscapeSize; });
constexpr Bytes kDigits = makeBytes([](unsigned place) { return kUpperHex[place % 16]; });

/// One bit per byte of a block.
struct Kinds {
  std::uint64_t escapes;
  std::uint64_t breaks;  ///< CRs of line breaks, whose LF may be in the next block.
};

/// Reads two bytes after the block. A LF at its front belongs to a line break when `brokenOff` is 1.
MAILTREE_AVX512 inline Kinds kindsOf(const char* p, std::uint64_t brokenOff) noexcept {
  const __m512i text = load(p);
  // Unsigned differences: one comparison for a range.
  const std::uint64_t printable = _cvtmask64_u64(
      _mm512_cmple_epu8_mask(_mm512_sub_epi8(text, _mm512_set1_epi8(' ')), _mm512_set1_epi8('~' - ' ')));
  const std::uint64_t tabs = findIn(text, '\t');
  const std::uint64_t breaks = findIn(text, '\r') & findIn(load(p + 1), '\n');
  const std::uint64_t breakFollows = p[kBlock] == '\r' && p[kBlock + 1] == '\n';
  const std::uint64_t lastBlanks = (findIn(text, ' ') | tabs) & (breaks >> 1 | breakFollows << (kBlock - 1));
  const std::uint64_t literals = (printable & ~findIn(text, '=')) | tabs | breaks | breaks << 1 | brokenOff;
  return {~literals | lastBlanks, breaks};
}

/// Encodes a group of a block; writes kBlock bytes.
template <std::size_t Group>
MAILTREE_AVX512 inline void putGroup(__m512i block, std::uint64_t escapes, char* to) noexcept {
  const __m512i triples = _mm512_maskz_permutexvar_epi8(kAll, load(kTriples<Group>), block);
  // The second character of an escape shows the upper four bits, the third the lower ones. An index is not
  // masked: the table of digits repeats itself.
  const __m512i upper = _mm512_maskz_srli_epi16(kAllPairs, triples, 4);
  const __m512i nibbles = _mm512_mask_blend_epi8(_cvtu64_mask64(kStarts << 1), triples, upper);
  const __m512i digits = _mm512_maskz_permutexvar_epi8(kAll, nibbles, load(kDigits));
  const std::uint64_t escaped = _pdep_u64(escapes >> Group * kGroup, kStarts);
  const __m512i firsts = _mm512_mask_blend_epi8(_cvtu64_mask64(escaped), triples, _mm512_set1_epi8('='));
  const __m512i codes = _mm512_mask_blend_epi8(_cvtu64_mask64(kStarts), digits, firsts);
  const std::uint64_t used = kStarts | escaped << 1 | escaped << 2;
  _mm512_storeu_si512(to, _mm512_maskz_compress_epi8(_cvtu64_mask64(used), codes));
}

/// The length of the encoding of the bytes before a place in a block.
MAILTREE_AVX512 inline std::size_t lengthUpTo(std::size_t place, std::uint64_t escapes) noexcept {
  return place + (kEscapeSize - 1) * countOf(lowest(escapes, place));
}

/// Encodes a block that has escapes, as groups and one more byte.
MAILTREE_AVX512 inline void putBlock(const char* p, std::uint64_t escapes, char* to) noexcept {
  static_assert(3 * kGroup + 1 == kBlock);
  const __m512i block = load(p);
  putGroup<0>(block, escapes, to);
  putGroup<1>(block, escapes, to + lengthUpTo(kGroup, escapes));
  putGroup<2>(block, escapes, to + lengthUpTo(2 * kGroup, escapes));
  char* const last = to + lengthUpTo(3 * kGroup, escapes);
  putEscape(p[kBlock - 1], last);
  *last = escapes >> (kBlock - 1) ? '=' : p[kBlock - 1];
}

}  // namespace

MAILTREE_AVX512 char* encodeSpanAvx512(std::string_view bytes, char* to, LineEnds& ends) noexcept {
  const char* p = bytes.data();
  const char* const end = p + bytes.size();
  std::uint64_t brokenOff = 0;
  ends.count = 0;
  while (p < end) {
    const Kinds kinds = kindsOf(p, brokenOff);
    // Bytes after the end are encoded too, but not counted.
    const std::size_t size = std::min(kBlock, static_cast<std::size_t>(end - p));
    if (kinds.escapes)
      putBlock(p, kinds.escapes, to);
    else
      _mm512_storeu_si512(to, load(p));
    for (std::uint64_t breaks = lowest(kinds.breaks, size); breaks; breaks &= breaks - 1)
      ends.at[ends.count++] = to + lengthUpTo(firstOf(breaks), kinds.escapes);
    brokenOff = kinds.breaks >> (kBlock - 1);
    to += lengthUpTo(size, kinds.escapes);
    p += size;
  }
  return to;
}

// Decoding

namespace {

/// The value of each hexadecimal digit, and kNoValue for other ASCII.
constexpr std::uint8_t kNoValue = 0x80;
constexpr std::uint8_t valueOf(unsigned c) {
  const int value = hexValue(static_cast<char>(c));
  return value < 0 ? kNoValue : static_cast<std::uint8_t>(value);
}
constexpr Bytes kValuesLow = makeBytes([](unsigned c) { return valueOf(c); });
constexpr Bytes kValuesHigh = makeBytes([](unsigned c) { return valueOf(c + kBlock); });

/// The values of hexadecimal digits; the top bit is set in other bytes.
MAILTREE_AVX512 inline __m512i valuesOf(__m512i text) noexcept {
  const __m512i values = _mm512_permutex2var_epi8(load(kValuesLow), text, load(kValuesHigh));
  return _mm512_or_si512(values, _mm512_and_si512(text, _mm512_set1_epi8(static_cast<char>(kNoValue))));
}

}  // namespace

MAILTREE_AVX512 std::size_t decodeAvx512(std::string_view text, std::uint8_t* out) noexcept {
  const char* p = text.data();
  const char* const end = p + text.size();
  std::uint8_t* to = out;
  std::uint64_t taken = 0;  // bytes at the front of the block that belong to the escape before it
  while (end - p >= std::ptrdiff_t{2 * kBlock}) {
    const __m512i bytes = load(p);
    const std::uint64_t equals = findIn(bytes, '=');
    if ((equals | taken) == 0) {
      _mm512_storeu_si512(to, bytes);
      p += kBlock;
      to += kBlock;
      continue;
    }
    const __m512i first = load(p + 1), second = load(p + 2);
    const __m512i high = valuesOf(first), low = valuesOf(second);
    const std::uint64_t others = _cvtmask64_u64(_mm512_movepi8_mask(_mm512_or_si512(high, low)));
    const std::uint64_t softBreaks = equals & findIn(first, '\r') & findIn(second, '\n');
    if (equals & others & ~softBreaks) {
      // Something damaged or unusual: the narrower code takes the text up to the end of it.
      p += countOf(taken);
      taken = 0;
      const Recoded done = decodeBlockAvx2({p, static_cast<std::size_t>(end - p)}, to);
      p += done.consumed;
      to += done.written;
      continue;
    }
    // Pairs of bytes are shifted: what comes from the neighbour is masked.
    const __m512i upper =
        _mm512_and_si512(_mm512_maskz_slli_epi16(kAllPairs, high, 4), _mm512_set1_epi8(~0x0F));
    const __m512i values = _mm512_or_si512(upper, low);
    const __m512i decoded = _mm512_mask_blend_epi8(_cvtu64_mask64(equals), bytes, values);
    const std::uint64_t kept = ~(equals << 1 | equals << 2 | softBreaks | taken);
    _mm512_storeu_si512(to, _mm512_maskz_compress_epi8(_cvtu64_mask64(kept), decoded));
    to += countOf(kept);
    p += kBlock;
    taken = equals >> (kBlock - 1) | equals >> (kBlock - 2);
    taken |= equals >> (kBlock - 1) << 1;
  }
  p += countOf(taken);
  const std::size_t rest = static_cast<std::size_t>(end - p);
  return static_cast<std::size_t>(to - out) + decodePortable(std::string_view(p, rest), to);
}

}  // namespace mailtree::quotedPrintable

#endif
