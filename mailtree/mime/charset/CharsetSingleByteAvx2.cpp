#include "mailtree/mime/charset/CharsetInternal.h"

#if MAILTREE_HAS_AVX2_PATH

#include <immintrin.h>

// 32 bytes at a time. ASCII is copied. For the others, both bytes of utf-8 are looked up for all at
// once, with one table per sixteen bytes of the code page, and then written in groups of eight, two
// bytes for each character that has two. Characters of three bytes are rare in alphabetic text;
// groups with one use the portable code.
//
// The file is compiled for any x86-64 processor; only the functions marked here may use the wider
// instructions, and they run only on a processor that has them.
namespace mailtree {
namespace {

constexpr std::size_t kBlock = 32;
constexpr std::size_t kGroup = 8;
constexpr unsigned kRow = 16;

/// The shuffle that drops unused second bytes of eight pairs, by one bit per pair that keeps it.
using PairShuffles = std::array<std::array<std::uint8_t, 2 * kGroup>, 1 << kGroup>;
alignas(16) constexpr PairShuffles kPairShuffles = [] {
  PairShuffles shuffles{};
  for (unsigned twos = 0; twos < shuffles.size(); ++twos) {
    std::size_t n = 0;
    for (unsigned i = 0; i < kGroup; ++i) {
      shuffles[twos][n++] = static_cast<std::uint8_t>(2 * i);
      if (twos >> i & 1) shuffles[twos][n++] = static_cast<std::uint8_t>(2 * i + 1);
    }
  }
  return shuffles;
}();

MAILTREE_AVX2 inline __m256i load(const char* p) noexcept {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

MAILTREE_AVX2 inline std::uint32_t bitsOf(__m256i bytes) noexcept {
  return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

/// The entry of a table row for each index, 0 where an index has its top bit set.
MAILTREE_AVX2 inline __m256i lookUp(const std::uint8_t* row, __m256i indexes) noexcept {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row));
  return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(bytes), indexes);
}

struct Pairs {
  __m256i first, second;
};

/// Both bytes of the characters that have two; zeros for all others.
MAILTREE_AVX2 inline Pairs pairsOf(const SingleByteCodec& codec, __m256i text) noexcept {
  Pairs pairs{_mm256_setzero_si256(), _mm256_setzero_si256()};
  for (unsigned row = 0; row < codec.first.size(); row += kRow) {
    // Indexes in this row are below 16, others above; adding moves the limit to the top bit.
    const __m256i offsets = _mm256_xor_si256(text, _mm256_set1_epi8(static_cast<char>(0x80 + row)));
    const __m256i indexes = _mm256_adds_epu8(offsets, _mm256_set1_epi8(0x80 - kRow));
    pairs.first = _mm256_or_si256(pairs.first, lookUp(codec.first.data() + row, indexes));
    pairs.second = _mm256_or_si256(pairs.second, lookUp(codec.second.data() + row, indexes));
  }
  return pairs;
}

/// Writes eight characters; the bits mark those of two bytes. Stores sixteen bytes.
MAILTREE_AVX2 inline char* putGroup(__m128i pairs, std::uint32_t twos, char* to) noexcept {
  twos &= kPairShuffles.size() - 1;
  const __m128i shuffle = _mm_load_si128(reinterpret_cast<const __m128i*>(kPairShuffles[twos].data()));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_shuffle_epi8(pairs, shuffle));
  return to + kGroup + _mm_popcnt_u32(twos);
}

}  // namespace

MAILTREE_AVX2 std::size_t count8bitAvx2(std::string_view bytes) noexcept {
  std::size_t count = 0;
  for (; bytes.size() >= kBlock; bytes.remove_prefix(kBlock))
    count += static_cast<std::size_t>(_mm_popcnt_u32(bitsOf(load(bytes.data()))));
  return count + count8bitPortable(bytes);
}

MAILTREE_AVX2 char* decodeSingleByteAvx2(const SingleByteCodec& codec, std::string_view bytes, char* to,
                                         bool& isValid) noexcept {
  for (; bytes.size() >= kBlock; bytes.remove_prefix(kBlock)) {
    const __m256i text = load(bytes.data());
    const std::uint32_t twos = bitsOf(text);
    if (twos == 0) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), text);
      to += kBlock;
      continue;
    }
    const Pairs pairs = pairsOf(codec, text);
    const std::uint32_t others = twos & bitsOf(_mm256_cmpeq_epi8(pairs.first, _mm256_setzero_si256()));
    const __m256i first = _mm256_blendv_epi8(text, pairs.first, text);
    const __m256i even = _mm256_unpacklo_epi8(first, pairs.second);
    const __m256i odd = _mm256_unpackhi_epi8(first, pairs.second);
    const __m128i groups[] = {_mm256_castsi256_si128(even), _mm256_castsi256_si128(odd),
                              _mm256_extracti128_si256(even, 1), _mm256_extracti128_si256(odd, 1)};
    for (std::size_t i = 0; i < kBlock; i += kGroup) {
      const bool plain = (others >> i & (kPairShuffles.size() - 1)) == 0;
      to = plain ? putGroup(groups[i / kGroup], twos >> i, to)
                 : decodeSingleBytePortable(codec, bytes.substr(i, kGroup), to, isValid);
    }
  }
  return decodeSingleBytePortable(codec, bytes, to, isValid);
}

}  // namespace mailtree

#endif
