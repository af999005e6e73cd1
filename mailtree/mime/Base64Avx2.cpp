#include "mailtree/mime/Base64Internal.h"

#if MAILTREE_BASE64_AVX2

#include <immintrin.h>

#include <cstring>

// 32 digits at a time. Both directions work on whole lines where they can: a line of 76 is two blocks and a
// third one that ends where the line ends and does some of the second once more, which costs less than any
// handling of the rest.
//
// The file is compiled for any x86-64 processor; only the functions marked here may use the wider
// instructions, and they run only on a processor that has them.
#define MAILTREE_AVX2 __attribute__((target("avx2")))

namespace mailtree::base64 {
namespace {

constexpr std::size_t kBlock = 32;       ///< Digits.
constexpr std::size_t kBlockBytes = 24;  ///< What they stand for.

/// A block's store is 32 bytes for 24, and its output buffer has 3 bytes for 4 digits: with this many digits
/// left the store stays inside.
constexpr std::ptrdiff_t kDecodeMargin = 44;

/// A block's load is 28 bytes for 24.
constexpr std::size_t kOverread = 4;

struct alignas(32) Lookup {
  std::int8_t bytes[32];
};

/// Both 128-bit lanes of a byte table.
template <class Entry>
constexpr Lookup makeLookup(Entry entry) {
  Lookup table{};
  for (int i = 0; i < 32; ++i) table.bytes[i] = static_cast<std::int8_t>(entry(i % 16));
  return table;
}

/// High nibbles that the digits share: 2 ("+", "/"), 3 (figures), 4 and 6, 5 and 7 (letters); the last class
/// has none.
constexpr int classOf(int highNibble) {
  constexpr int kClasses[16] = {4, 4, 0, 1, 2, 3, 2, 3, 4, 4, 4, 4, 4, 4, 4, 4};
  return kClasses[highNibble];
}

constexpr bool isDigit(int high, int low) {
  return kDigitValues[static_cast<unsigned>(high * 16 + low)] != kNoDigit;
}

/// The class of a high nibble as one bit.
constexpr Lookup kClassBits = makeLookup([](int high) { return 1 << classOf(high); });

/// The classes in which a low nibble makes no digit. A byte is no digit when this and its class have a bit in
/// common.
constexpr Lookup kWrongClasses = makeLookup([](int low) {
  int classes = 1 << 4;
  for (int high = 2; high <= 5; ++high)
    if (!isDigit(high, low)) classes |= 1 << classOf(high);
  return classes;
});

constexpr bool classesAreExact() {
  for (int high = 0; high < 16; ++high)
    for (int low = 0; low < 16; ++low)
      if (isDigit(high, low) != ((kClassBits.bytes[high] & kWrongClasses.bytes[low]) == 0)) return false;
  return true;
}
static_assert(classesAreExact());

/// What turns a digit into its value, by high nibble; "/" looks one to the left of the others that begin
/// with 2.
constexpr Lookup kValueOffsets = makeLookup([](int high) {
  constexpr int kOffsets[16] = {0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a'};
  return kOffsets[high];
});

/// From four 24-bit groups, each in the low end of 32 bits, to twelve bytes.
constexpr Lookup kGather = makeLookup([](int i) { return i < 12 ? i / 3 * 4 + 2 - i % 3 : 0x80; });

/// From twelve bytes to the middle, low, high, middle byte of each triple, so that every digit's bits are in
/// one unit.
constexpr Lookup kSpread = makeLookup([](int i) {
  constexpr int kOrder[4] = {1, 0, 2, 1};
  return i / 4 * 3 + kOrder[i % 4];
});

/// What turns a value into its digit, by range: 0 is 26-51, 1-10 the figures, 11 "+", 12 "/", 13 is 0-25.
constexpr Lookup kDigitOffsets = makeLookup([](int range) {
  if (range == 0) return 'a' - 26;
  if (range <= 10) return '0' - 52;
  if (range == 11) return '+' - 62;
  if (range == 12) return '/' - 63;
  return range == 13 ? 'A' + 0 : 0;
});

MAILTREE_AVX2 inline __m256i load(const void* p) noexcept {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

MAILTREE_AVX2 inline __m256i load(const Lookup& table) noexcept {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(table.bytes));
}

MAILTREE_AVX2 inline __m256i highNibbles(__m256i text) noexcept {
  return _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(0x0F));
}

/// Non-zero where a byte is no digit.
MAILTREE_AVX2 inline __m256i strangers(__m256i text) noexcept {
  const __m256i low = _mm256_and_si256(text, _mm256_set1_epi8(0x0F));
  return _mm256_and_si256(_mm256_shuffle_epi8(load(kClassBits), highNibbles(text)),
                          _mm256_shuffle_epi8(load(kWrongClasses), low));
}

/// One bit per byte that is no digit.
MAILTREE_AVX2 inline std::uint32_t strangerMask(__m256i text) noexcept {
  const __m256i digits = _mm256_cmpeq_epi8(strangers(text), _mm256_setzero_si256());
  return ~static_cast<std::uint32_t>(_mm256_movemask_epi8(digits));
}

/// Stores the 24 bytes of 32 digits, and 8 of nothing behind them.
MAILTREE_AVX2 inline void storeDecoded(__m256i text, std::uint8_t* out) noexcept {
  const __m256i slash = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('/'));
  const __m256i offsets = _mm256_shuffle_epi8(load(kValueOffsets), _mm256_add_epi8(highNibbles(text), slash));
  const __m256i values = _mm256_add_epi8(text, offsets);
  // Six bits to twelve, twelve to twenty-four: first value times 64 plus second, first pair times 4096 plus
  // second.
  const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  const __m256i lanes = _mm256_shuffle_epi8(groups, load(kGather));
  const __m256i joined = _mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), joined);
}

/// Stores the 32 digits of 24 bytes; reads 28.
MAILTREE_AVX2 inline void storeEncoded(const std::uint8_t* data, char* out) noexcept {
  const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
  const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 12));
  const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
  const __m256i spread = _mm256_shuffle_epi8(bytes, load(kSpread));
  // Multiplications shift each 16-bit unit by an amount of its own: first and third digit down, second and
  // fourth up.
  const __m256i odd = _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)),
                                         _mm256_set1_epi32(0x04000040));
  const __m256i even = _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)),
                                          _mm256_set1_epi32(0x01000010));
  const __m256i values = _mm256_or_si256(odd, even);
  const __m256i ranges = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
  const __m256i upper =
      _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), values), _mm256_set1_epi8(13));
  const __m256i offsets = _mm256_shuffle_epi8(load(kDigitOffsets), _mm256_or_si256(ranges, upper));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_add_epi8(values, offsets));
}

/// Lines of one length: how the lines of the text so far were broken.
struct LineShape {
  std::size_t digits = 0;  ///< 0 while no line was seen that whole blocks can be laid over.
  std::size_t breakSize = 0;

  /// Learns from a line that ended: `junk` bytes stood between its last digit and the next line.
  void learn(std::size_t length, const char* junk, std::size_t junkSize) noexcept {
    const bool plainBreak =
        junkSize == 1 ? junk[0] == '\n' : junkSize == 2 && junk[0] == '\r' && junk[1] == '\n';
    const bool usable = plainBreak && length >= kBlock && length % 4 == 0;
    digits = usable ? length : 0;
    breakSize = usable ? junkSize : 0;
  }

  bool endsAt(const char* p) const noexcept {
    return breakSize == 2 ? p[0] == '\r' && p[1] == '\n' : p[0] == '\n';
  }
};

/// Decodes lines of the shape for as long as they come; stops before the first that is different.
MAILTREE_AVX2 void decodeLines(const LineShape& shape, const char*& p, const char* end,
                               std::uint8_t*& out) noexcept {
  const std::ptrdiff_t step = static_cast<std::ptrdiff_t>(shape.digits + shape.breakSize);
  const std::size_t lastBlock = shape.digits - kBlock;
  while (end - p >= step + kDecodeMargin && shape.endsAt(p + shape.digits)) {
    __m256i wrong = _mm256_setzero_si256();
    for (std::size_t i = 0; i < lastBlock; i += kBlock) {
      const __m256i text = load(p + i);
      wrong = _mm256_or_si256(wrong, strangers(text));
      storeDecoded(text, out + i / 4 * 3);
    }
    const __m256i text = load(p + lastBlock);
    wrong = _mm256_or_si256(wrong, strangers(text));
    storeDecoded(text, out + lastBlock / 4 * 3);
    if (!_mm256_testz_si256(wrong, wrong)) return;
    p += step;
    out += shape.digits / 4 * 3;
  }
}

/// Decodes pairs of blocks for as long as they hold nothing but digits.
MAILTREE_AVX2 void decodeBlocks(const char*& p, const char* end, std::uint8_t*& out) noexcept {
  for (; end - p >= kDecodeMargin + std::ptrdiff_t{kBlock}; p += 2 * kBlock, out += 2 * kBlockBytes) {
    const __m256i first = load(p), second = load(p + kBlock);
    const __m256i wrong = _mm256_or_si256(strangers(first), strangers(second));
    if (!_mm256_testz_si256(wrong, wrong)) return;
    storeDecoded(first, out);
    storeDecoded(second, out + kBlockBytes);
  }
}

}  // namespace

MAILTREE_AVX2 std::size_t decodeAvx2(std::string_view text, std::uint8_t* out) noexcept {
  const std::uint8_t* const begin = out;
  const char* p = text.data();
  const char* const end = p + text.size();
  const char* lineStart = p;
  LineShape shape;
  while (end - p >= kDecodeMargin) {
    if (shape.digits && p == lineStart) {
      decodeLines(shape, p, end, out);
      lineStart = p;
      if (end - p < kDecodeMargin) break;
    }
    const __m256i block = load(p);
    const std::uint32_t strange = strangerMask(block);
    storeDecoded(block, out);
    if (strange == 0) {
      p += kBlock;
      out += kBlockBytes;
      if (!shape.digits) decodeBlocks(p, end, out);  // a text without line breaks so far
      continue;
    }
    const std::size_t whole = static_cast<unsigned>(__builtin_ctz(strange)) & ~3U;
    p += whole;
    out += whole / 4 * 3;
    if (digitValue(*p) != kNoDigit) {
      decodeGroup(p, end, out);  // a group that something stands in
      continue;
    }
    const char* const junk = p;
    while (p < end && digitValue(*p) == kNoDigit) ++p;
    if (p[-1] != '\n') continue;
    shape.learn(static_cast<std::size_t>(junk - lineStart), junk, static_cast<std::size_t>(p - junk));
    lineStart = p;
  }
  const std::size_t rest = static_cast<std::size_t>(end - p);
  return static_cast<std::size_t>(out - begin) + decodePortable(std::string_view(p, rest), out);
}

MAILTREE_AVX2 std::size_t encodeAvx2(const std::uint8_t* data, std::size_t size, char* out,
                                     std::size_t lineLength) noexcept {
  const char* const begin = out;
  if (lineLength == 0) {
    for (; size >= kBlockBytes + kOverread; data += kBlockBytes, size -= kBlockBytes, out += kBlock)
      storeEncoded(data, out);
  } else if (lineLength >= kBlock) {
    const std::size_t bytesPerLine = lineLength / 4 * 3;
    const std::size_t lastBlock = lineLength - kBlock;
    for (; size >= bytesPerLine + kOverread; data += bytesPerLine, size -= bytesPerLine) {
      for (std::size_t i = 0; i < lastBlock; i += kBlock) storeEncoded(data + i / 4 * 3, out + i);
      storeEncoded(data + lastBlock / 4 * 3, out + lastBlock);
      out[lineLength] = '\r';
      out[lineLength + 1] = '\n';
      out += lineLength + 2;
    }
  }
  return static_cast<std::size_t>(out - begin) + encodePortable(data, size, out, lineLength);
}

}  // namespace mailtree::base64

#endif
