#include <array>
#include <cstdint>
#include <cstring>

#include "mailtree/base/Avx2.h"
#include "mailtree/base/Utf.h"
#include "mailtree/base/internal.h"

#if MAILTREE_HAS_AVX2_PATH
#include <immintrin.h>
#endif

// Two implementations. The portable one is a state machine without branches, one table row per byte; the
// other checks 32 bytes at once. Both skip runs of ASCII.

namespace mailtree {
namespace {

// The state machine. A state is the bit offset of its field in a row. The row of a byte
// holds the next state for each state, so a step is one shift: state = row >> state. Six
// bits per field, nine states, one 64-bit row.
enum State : unsigned {
  kBad = 0,       // stays bad: all its fields are 0
  kStart = 6,     // between characters
  kOne = 12,      // one trail byte to come
  kTwo = 18,      // two
  kThree = 24,    // three
  kAfterE0 = 30,  // A0..BF, then one more
  kAfterED = 36,  // 80..9F, then one more
  kAfterF0 = 42,  // 90..BF, then two more
  kAfterF4 = 48,  // 80..8F, then two more
};

constexpr State afterLead(unsigned byte) noexcept {
  if (byte < 0x80) return kStart;
  if (byte < 0xC2) return kBad;
  if (byte < 0xE0) return kOne;
  if (byte == 0xE0) return kAfterE0;
  if (byte == 0xED) return kAfterED;
  if (byte < 0xF0) return kTwo;
  if (byte == 0xF0) return kAfterF0;
  if (byte < 0xF4) return kThree;
  return byte == 0xF4 ? kAfterF4 : kBad;
}

struct TrailRule {
  State from;
  unsigned low, high;
  State to;
};
constexpr TrailRule kTrailRules[] = {
    {kOne, 0x80, 0xBF, kStart},   {kTwo, 0x80, 0xBF, kOne},     {kThree, 0x80, 0xBF, kTwo},
    {kAfterE0, 0xA0, 0xBF, kOne}, {kAfterED, 0x80, 0x9F, kOne}, {kAfterF0, 0x90, 0xBF, kTwo},
    {kAfterF4, 0x80, 0x8F, kTwo},
};

constexpr std::array<std::uint64_t, 256> makeRows() noexcept {
  std::array<std::uint64_t, 256> rows{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    rows[byte] = std::uint64_t{afterLead(byte)} << kStart;
    for (const TrailRule& rule : kTrailRules)
      if (byte >= rule.low && byte <= rule.high) rows[byte] |= std::uint64_t{rule.to} << rule.from;
  }
  return rows;
}
constexpr std::array<std::uint64_t, 256> kRows = makeRows();

std::uint64_t step(std::uint64_t state, std::string_view bytes) noexcept {
  for (const char c : bytes) state = kRows[static_cast<unsigned char>(c)] >> (state & 63);
  return state & 63;
}

#if MAILTREE_HAS_AVX2_PATH

// Every malformed pair of adjacent bytes is in one of eight classes. A class is three sets of nibbles: high
// and low nibble of the first byte, high nibble of the second. One bit per class; a pair is in a class when
// all three nibbles have its bit. Pairs of trail bytes are valid where an earlier lead byte requires them.
struct PairClass {
  std::uint16_t firstHigh, firstLow, secondHigh;  // bit n: nibble n
};
constexpr PairClass kPairClasses[8] = {
    {0xF000, 0xFFFF, 0xF0FF},  // a lead byte without a trail byte after it
    {0x00FF, 0xFFFF, 0x0F00},  // a trail byte after ASCII
    {0x1000, 0x0003, 0x0F00},  // overlong, two bytes: C0 C1
    {0x4000, 0x0001, 0x0300},  // overlong, three bytes: E0 80..9F
    {0x4000, 0x2000, 0x0C00},  // surrogates: ED A0..BF
    {0x8000, 0xFFF0, 0x0E00},  // above U+10FFFF: F4..FF 90..BF
    {0x8000, 0xFFE1, 0x0100},  // overlong, four bytes: F0 80..8F; above U+10FFFF: F5..FF 80..8F
    {0x0F00, 0xFFFF, 0x0F00},  // two trail bytes; must be the top bit, see wrongBytes
};

constexpr std::array<std::uint8_t, 16> nibbleTable(std::uint16_t PairClass::*nibbles) noexcept {
  std::array<std::uint8_t, 16> table{};
  for (unsigned nibble = 0; nibble < 16; ++nibble)
    for (unsigned bit = 0; bit < 8; ++bit)
      if (kPairClasses[bit].*nibbles >> nibble & 1)
        table[nibble] = static_cast<std::uint8_t>(table[nibble] | 1U << bit);
  return table;
}
constexpr auto kFirstHigh = nibbleTable(&PairClass::firstHigh);
constexpr auto kFirstLow = nibbleTable(&PairClass::firstLow);
constexpr auto kSecondHigh = nibbleTable(&PairClass::secondHigh);

MAILTREE_AVX2 inline __m256i load(const char* bytes) noexcept {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}

MAILTREE_AVX2 inline __m256i lookUp(const std::array<std::uint8_t, 16>& table, __m256i nibbles) noexcept {
  const __m128i row = _mm_loadu_si128(reinterpret_cast<const __m128i*>(table.data()));
  return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(row), nibbles);
}

MAILTREE_AVX2 inline __m256i highNibbles(__m256i bytes) noexcept {
  return _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(0x0F));
}

/// Non-zero where a byte of `block` cannot follow the bytes before it; `before` is the previous block.
MAILTREE_AVX2 inline __m256i wrongBytes(__m256i block, __m256i before) noexcept {
  const __m256i seam = _mm256_permute2x128_si256(before, block, 0x21);
  const __m256i first = _mm256_alignr_epi8(block, seam, 15);
  const __m256i pair =
      _mm256_and_si256(_mm256_and_si256(lookUp(kFirstHigh, highNibbles(first)),
                                        lookUp(kFirstLow, _mm256_and_si256(first, _mm256_set1_epi8(0x0F)))),
                       lookUp(kSecondHigh, highNibbles(block)));
  // Two bytes after E0 and above, or three after F0 and above, a second trail byte is required: the top bit
  // is set exactly there. It cancels the class of two trail bytes or reports that the byte is missing.
  const __m256i thirdDue =
      _mm256_subs_epu8(_mm256_alignr_epi8(block, seam, 14), _mm256_set1_epi8(0xE0 - 0x80));
  const __m256i fourthDue =
      _mm256_subs_epu8(_mm256_alignr_epi8(block, seam, 13), _mm256_set1_epi8(0xF0 - 0x80));
  const __m256i due =
      _mm256_and_si256(_mm256_or_si256(thirdDue, fourthDue), _mm256_set1_epi8(static_cast<char>(0x80)));
  return _mm256_xor_si256(due, pair);
}

MAILTREE_AVX2 bool isValidUtf8Avx2(std::string_view bytes) noexcept {
  constexpr std::size_t kBlock = 32;
  __m256i wrong = _mm256_setzero_si256();
  __m256i before = _mm256_setzero_si256();
  for (; bytes.size() >= kBlock; bytes.remove_prefix(kBlock)) {
    const __m256i block = load(bytes.data());
    // Two adjacent blocks of ASCII: no character is incomplete in the first, none is malformed in the second.
    if (_mm256_movemask_epi8(_mm256_or_si256(block, before)) != 0)
      wrong = _mm256_or_si256(wrong, wrongBytes(block, before));
    before = block;
  }
  char tail[kBlock] = {};  // at least one zero follows the text, which reveals a truncated character
  std::memcpy(tail, bytes.data(), bytes.size());
  wrong = _mm256_or_si256(wrong, wrongBytes(load(tail), before));
  return _mm256_testz_si256(wrong, wrong) != 0;
}

#endif

}  // namespace

bool isValidUtf8Portable(std::string_view bytes) noexcept {
  constexpr std::size_t kBlock = 64;
  std::uint64_t state = kStart;
  for (; bytes.size() >= kBlock; bytes.remove_prefix(kBlock)) {
    const std::string_view block = bytes.substr(0, kBlock);
    if (state == kStart && isAscii(block)) continue;
    state = step(state, block);
    if (state == kBad) return false;
  }
  return step(state, bytes) == kStart;
}

bool isValidUtf8(std::string_view bytes) noexcept {
#if MAILTREE_HAS_AVX2_PATH
  if (bytes.size() >= 32 && hasAvx2()) return isValidUtf8Avx2(bytes);
#endif
  return isValidUtf8Portable(bytes);
}

}  // namespace mailtree
