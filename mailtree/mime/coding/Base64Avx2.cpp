#include "mailtree/mime/coding/Base64Internal.h"

#if MAILTREE_HAS_AVX2_PATH

#include <immintrin.h>

#include <cstring>

// 32 digits at a time. Both directions work on whole lines where they can. Lines of 76, the usual length in
// mail, are processed in pairs: two blocks, one block of the end of the first line and the beginning of the
// second, two blocks. The decoded bytes of the two halves are adjacent, so the middle block costs no more
// than the others. In a line that is not a multiple of a block, some digits are processed twice, which is
// cheaper than handling the rest separately.
//
// The file is compiled for any x86-64 processor; only the functions marked here may use the wider
// instructions, and they run only on a processor that has them.
namespace mailtree::base64 {
namespace {

constexpr std::size_t kBlock = 32;       ///< Digits.
constexpr std::size_t kBlockBytes = 24;  ///< The bytes they encode.

/// A block stores 28 bytes for 24, and its output buffer has 3 bytes for 4 digits: with this many digits left
/// the store stays inside.
constexpr std::ptrdiff_t kDecodeMargin = 44;

constexpr std::size_t kOverread = 4;  ///< Bytes that a block may load after its end.

constexpr std::size_t kBreakSize = 2;  ///< CRLF

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

// One hash checks a digit and gives its value. The low nibble of a byte selects where its column
// begins in a row of sixteen slots, the high nibble the position in the column. Each slot holds the
// number to add to the byte and the largest valid result. A byte that is not a digit hits a slot where
// the result is larger, or negative, which is larger when read as unsigned. The columns overlap and
// use all slots; classesAreExact() checks all bytes.

/// The class of digits of each slot: upper case, lower case, decimal, plus, slash.
constexpr char kSlots[17] = "UPLUSLUULDUULLDU";

/// Where a column begins, by low nibble. Most hold a decimal digit and an upper-case and a lower-case letter.
constexpr int columnOf(int lowNibble) {
  constexpr int kColumns[16] = {11, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 15, 6, 6, 6, 2};
  return kColumns[lowNibble];
}

struct Slot {
  int offset, largest;
};

constexpr Slot slotOf(char kind) {
  switch (kind) {
    case 'U': return {0 - 'A', 25};
    case 'L': return {26 - 'a', 51};
    case 'D': return {52 - '0', 61};
    case 'P': return {62 - '+', 62};
    default: return {63 - '/', 63};
  }
}

constexpr Lookup kColumns = makeLookup(columnOf);
constexpr Lookup kOffsets = makeLookup([](int slot) { return slotOf(kSlots[slot]).offset; });
constexpr Lookup kLargest = makeLookup([](int slot) { return slotOf(kSlots[slot]).largest; });

constexpr bool classesAreExact() {
  for (int c = 0; c < 256; ++c) {
    const int column =
        c < 0x80 ? columnOf(c & 15) : 0;  // a shuffle gives 0 for an index with its top bit set
    const Slot slot = slotOf(kSlots[(column + (c >> 4)) & 15]);
    const int value = (c < 0x80 ? c : c - 256) + slot.offset;
    const bool accepted = value >= 0 && value <= slot.largest;
    const std::uint8_t wanted = kDigitValues[static_cast<unsigned>(c)];
    if (accepted ? value != wanted : wanted != kNoDigit) return false;
  }
  return true;
}
static_assert(classesAreExact());

/// Packs four 24-bit groups, each in the low end of 32 bits, into twelve bytes.
constexpr Lookup kGather = makeLookup([](int i) { return i < 12 ? i / 3 * 4 + 2 - i % 3 : 0x80; });

/// Spreads twelve bytes into the middle, low, high, middle byte of each triple, so the bits of every digit
/// are in one unit. The arguments: where in each lane the twelve bytes begin.
constexpr Lookup makeSpread(int firstOfLow, int firstOfHigh) {
  constexpr int kOrder[4] = {1, 0, 2, 1};
  Lookup table{};
  for (int i = 0; i < 32; ++i)
    table.bytes[i] =
        static_cast<std::int8_t>((i < 16 ? firstOfLow : firstOfHigh) + i % 16 / 4 * 3 + kOrder[i % 4]);
  return table;
}

/// For two loads inside the block: its first 16 bytes, its last 16.
constexpr Lookup kSpreadWithin = makeSpread(0, 4);

/// For one load that begins kAhead bytes before the block.
constexpr std::size_t kAhead = 4;
constexpr Lookup kSpreadAcross = makeSpread(kAhead, 0);

/// The difference of digit and value, by range: 0-25, 26-51, decimal digits, "+", "/".
constexpr Lookup kDigitOffsets = makeLookup([](int range) {
  if (range == 0) return 'A' - 0;
  if (range == 1) return 'a' - 26;
  if (range <= 11) return '0' - 52;
  return range == 12 ? '+' - 62 : '/' - 63;
});

MAILTREE_AVX2 inline __m256i load(const void* p) noexcept {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

MAILTREE_AVX2 inline __m256i load(const Lookup& table) noexcept {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(table.bytes));
}

MAILTREE_AVX2 inline __m128i loadHalf(const void* p) noexcept {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

/// 16 bytes from each of two places.
MAILTREE_AVX2 inline __m256i loadHalves(const void* low, const void* high) noexcept {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(loadHalf(low)), loadHalf(high), 1);
}

MAILTREE_AVX2 inline void store(char* out, __m256i bytes) noexcept {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), bytes);
}

/// Stores the lower half at one place and the upper half at another.
MAILTREE_AVX2 inline void storeHalves(void* low, void* high, __m256i bytes) noexcept {
  _mm_storeu_si128(static_cast<__m128i*>(low), _mm256_castsi256_si128(bytes));
  _mm_storeu_si128(static_cast<__m128i*>(high), _mm256_extracti128_si256(bytes, 1));
}

struct Values {
  __m256i values;
  __m256i nonDigits;  ///< Non-zero where a byte is not a digit.
};

MAILTREE_AVX2 inline Values valuesOf(__m256i text) noexcept {
  const __m256i high = _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(0x0F));
  const __m256i slots = _mm256_add_epi8(_mm256_shuffle_epi8(load(kColumns), text), high);
  const __m256i values = _mm256_adds_epi8(text, _mm256_shuffle_epi8(load(kOffsets), slots));
  return {values, _mm256_subs_epu8(values, _mm256_shuffle_epi8(load(kLargest), slots))};
}

/// One bit per byte that is not a digit.
MAILTREE_AVX2 inline std::uint32_t maskOf(__m256i nonDigits) noexcept {
  const __m256i digits = _mm256_cmpeq_epi8(nonDigits, _mm256_setzero_si256());
  return ~static_cast<std::uint32_t>(_mm256_movemask_epi8(digits));
}

/// Stores the 24 bytes of 32 values, and 4 zero bytes after them. Two stores of 16
/// bytes are cheaper than joining the halves.
MAILTREE_AVX2 inline void storeDecoded(__m256i values, std::uint8_t* out) noexcept {
  // Joins six bits to twelve, then twelve to twenty-four: first value times 64 plus
  // second, first pair times 4096 plus second.
  const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  storeHalves(out, out + kBlockBytes / 2, _mm256_shuffle_epi8(groups, load(kGather)));
}

/// Decodes a block and adds its bytes that are not digits to `wrong`.
MAILTREE_AVX2 inline void decodeBlock(__m256i text, std::uint8_t* out, __m256i& wrong) noexcept {
  const Values block = valuesOf(text);
  wrong = _mm256_or_si256(wrong, block.nonDigits);
  storeDecoded(block.values, out);
}

/// The digits of spread bytes.
MAILTREE_AVX2 inline __m256i digitsOf(__m256i spread) noexcept {
  // Multiplications shift each 16-bit unit by its own amount: first and third digit down,
  // second and fourth up.
  const __m256i odd = _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)),
                                         _mm256_set1_epi32(0x04000040));
  const __m256i even = _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)),
                                          _mm256_set1_epi32(0x01000010));
  const __m256i values = _mm256_or_si256(odd, even);
  const __m256i letters = _mm256_cmpgt_epi8(values, _mm256_set1_epi8(25));  // -1 for all ranges but the first
  const __m256i ranges = _mm256_sub_epi8(_mm256_subs_epu8(values, _mm256_set1_epi8(51)), letters);
  return _mm256_add_epi8(values, _mm256_shuffle_epi8(load(kDigitOffsets), ranges));
}

/// The 32 digits of 24 bytes.
MAILTREE_AVX2 inline __m256i encodedBlock(const std::uint8_t* data) noexcept {
  const __m256i bytes = loadHalves(data, data + kBlockBytes - 16);
  return digitsOf(_mm256_shuffle_epi8(bytes, load(kSpreadWithin)));
}

/// The same for a block between other bytes: one load less. Reads kAhead bytes
/// before the block and kOverread after it.
MAILTREE_AVX2 inline __m256i encodedInnerBlock(const std::uint8_t* data) noexcept {
  return digitsOf(_mm256_shuffle_epi8(load(data - kAhead), load(kSpreadAcross)));
}

/// The length and line break of the lines so far.
struct LineShape {
  std::size_t digits = 0;  ///< 0 until a line long enough for whole blocks was seen.
  std::size_t breakSize = 0;

  /// Learns from a line that ended: `junk` is the text between its last digit and the next line.
  void learn(std::size_t length, const char* junk, std::size_t junkSize) noexcept {
    const bool plainBreak =
        junkSize == 1 ? junk[0] == '\n' : junkSize == 2 && junk[0] == '\r' && junk[1] == '\n';
    const bool usable = plainBreak && length >= kBlock && length % 4 == 0;
    digits = usable ? length : 0;
    breakSize = usable ? junkSize : 0;
  }

  bool endsAt(const char* p) const noexcept { return breakSize == 2 ? isBreak<2>(p) : isBreak<1>(p); }

  template <std::size_t BreakSize>
  static bool isBreak(const char* p) noexcept {
    return BreakSize == 2 ? p[0] == '\r' && p[1] == '\n' : p[0] == '\n';
  }
};

/// Lines of usual mail, and where the blocks begin in a pair of them; `step` is a line with its break.
constexpr std::size_t kMailLine = 76;
constexpr std::size_t kMailLineBytes = kMailLine / 4 * 3;
constexpr std::size_t kSeam = kMailLine - kBlock / 2;  ///< The block across the two lines.
constexpr std::size_t kSeamBytes = kSeam / 4 * 3;

/// Decodes pairs of lines of 76 while they follow. A separate function, because inside its caller the tables
/// do not stay in registers.
template <std::size_t BreakSize>
[[gnu::noinline]] MAILTREE_AVX2 Progress decodeLinePairs(Progress at, const char* end) noexcept {
  constexpr std::size_t kStep = kMailLine + BreakSize;
  while (end - at.p >= std::ptrdiff_t{2 * kStep} + kDecodeMargin &&
         LineShape::isBreak<BreakSize>(at.p + kMailLine) &&
         LineShape::isBreak<BreakSize>(at.p + kStep + kMailLine)) {
    const char* const second = at.p + kStep;
    std::uint8_t* const secondOut = at.out + kMailLineBytes;
    __m256i wrong = _mm256_setzero_si256();
    decodeBlock(load(at.p), at.out, wrong);
    decodeBlock(load(at.p + kBlock), at.out + kBlockBytes, wrong);
    decodeBlock(loadHalves(at.p + kSeam, second), at.out + kSeamBytes, wrong);
    decodeBlock(load(second + kBlock / 2), secondOut + kBlockBytes / 2, wrong);
    decodeBlock(load(second + kMailLine - kBlock), secondOut + kMailLineBytes - kBlockBytes, wrong);
    if (!_mm256_testz_si256(wrong, wrong)) break;
    at.p += 2 * kStep;
    at.out += 2 * kMailLineBytes;
  }
  return at;
}

/// Decodes lines of the shape while they follow; stops before the first that differs.
template <bool IsWide>
MAILTREE_AVX2 Progress decodeLines(const LineShape& shape, Progress at, const char* end) noexcept {
  if (IsWide && shape.digits == kMailLine)
    at = decodeMailLinesAvx512(at, end, shape.breakSize);
  else if (shape.digits == kMailLine)
    at = shape.breakSize == 2 ? decodeLinePairs<2>(at, end) : decodeLinePairs<1>(at, end);
  const std::size_t step = shape.digits + shape.breakSize;
  const std::size_t lastBlock = shape.digits - kBlock;
  while (end - at.p >= static_cast<std::ptrdiff_t>(step) + kDecodeMargin &&
         shape.endsAt(at.p + shape.digits)) {
    __m256i wrong = _mm256_setzero_si256();
    for (std::size_t i = 0; i < lastBlock; i += kBlock)
      decodeBlock(load(at.p + i), at.out + i / 4 * 3, wrong);
    decodeBlock(load(at.p + lastBlock), at.out + lastBlock / 4 * 3, wrong);
    if (!_mm256_testz_si256(wrong, wrong)) break;
    at.p += step;
    at.out += shape.digits / 4 * 3;
  }
  return at;
}

/// Decodes pairs of blocks while they contain only digits.
template <bool IsWide>
MAILTREE_AVX2 Progress decodeBlocks(Progress at, const char* end) noexcept {
  if (IsWide) return decodeBlocksAvx512(at, end);
  while (end - at.p >= kDecodeMargin + std::ptrdiff_t{kBlock}) {
    __m256i wrong = _mm256_setzero_si256();
    decodeBlock(load(at.p), at.out, wrong);
    decodeBlock(load(at.p + kBlock), at.out + kBlockBytes, wrong);
    if (!_mm256_testz_si256(wrong, wrong)) break;
    at.p += 2 * kBlock;
    at.out += 2 * kBlockBytes;
  }
  return at;
}

/// `IsWide`: with the loops of Base64Avx512.cpp where the text is regular.
template <bool IsWide>
MAILTREE_AVX2 std::size_t decodeText(std::string_view text, std::uint8_t* out) noexcept {
  const std::uint8_t* const begin = out;
  const char* p = text.data();
  const char* const end = p + text.size();
  const char* lineStart = p;
  LineShape shape;
  while (end - p >= kDecodeMargin) {
    if (shape.digits && p == lineStart) {
      const Progress reached = decodeLines<IsWide>(shape, {p, out}, end);
      p = lineStart = reached.p;
      out = reached.out;
      if (end - p < kDecodeMargin) break;
    }
    const Values block = valuesOf(load(p));
    const std::uint32_t nonDigits = maskOf(block.nonDigits);
    storeDecoded(block.values, out);
    if (nonDigits == 0) {
      p += kBlock;
      out += kBlockBytes;
      if (shape.digits) continue;
      const Progress reached = decodeBlocks<IsWide>({p, out}, end);  // a text without line breaks so far
      p = reached.p;
      out = reached.out;
      continue;
    }
    const std::size_t whole = static_cast<unsigned>(__builtin_ctz(nonDigits)) & ~3U;
    p += whole;
    out += whole / 4 * 3;
    if (digitValue(*p) != kNoDigit) {
      decodeGroup(p, end, out);  // a group with other characters in it
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

}  // namespace

std::size_t decodeAvx2(std::string_view text, std::uint8_t* out) noexcept {
  return decodeText<false>(text, out);
}
std::size_t decodeAvx512(std::string_view text, std::uint8_t* out) noexcept {
  return decodeText<true>(text, out);
}

namespace {

inline void breakLine(char* out) noexcept {
  out[0] = '\r';
  out[1] = '\n';
}

/// Bytes to encode, and their destination.
struct Piece {
  const std::uint8_t* data;
  std::size_t size;
  char* out;

  void advance(std::size_t bytes, std::size_t written) noexcept {
    data += bytes;
    size -= bytes;
    out += written;
  }
};

/// All blocks of a text without line breaks.
MAILTREE_AVX2 Piece encodeBlocks(Piece piece) noexcept {
  const std::uint8_t* const first = piece.data;
  for (; piece.size >= kBlockBytes + kOverread; piece.advance(kBlockBytes, kBlock))
    store(piece.out, piece.data == first ? encodedBlock(piece.data) : encodedInnerBlock(piece.data));
  if (piece.size < kBlockBytes) return piece;
  store(piece.out, encodedBlock(piece.data));
  piece.advance(kBlockBytes, kBlock);
  return piece;
}

/// At most `count` lines.
MAILTREE_AVX2 Piece encodeLines(Piece piece, std::size_t lineLength, std::size_t count) noexcept {
  const std::size_t bytesPerLine = lineLength / 4 * 3;
  const std::size_t lastBlock = lineLength - kBlock;
  for (; count && piece.size >= bytesPerLine; --count) {
    for (std::size_t i = 0; i < lastBlock; i += kBlock)
      store(piece.out + i, encodedBlock(piece.data + i / 4 * 3));
    store(piece.out + lastBlock, encodedBlock(piece.data + lastBlock / 4 * 3));
    breakLine(piece.out + lineLength);
    piece.advance(bytesPerLine, lineLength + kBreakSize);
  }
  return piece;
}

/// All pairs of lines of 76; other bytes must precede them.
MAILTREE_AVX2 Piece encodeLinePairs(Piece piece) noexcept {
  constexpr std::size_t kStep = kMailLine + kBreakSize;
  for (; piece.size >= 2 * kMailLineBytes + kOverread; piece.advance(2 * kMailLineBytes, 2 * kStep)) {
    char* const out = piece.out;
    char* const second = out + kStep;
    const std::uint8_t* const secondData = piece.data + kMailLineBytes;
    store(out, encodedInnerBlock(piece.data));
    store(out + kBlock, encodedInnerBlock(piece.data + kBlockBytes));
    storeHalves(out + kSeam, second, encodedInnerBlock(piece.data + kSeamBytes));
    store(second + kBlock / 2, encodedInnerBlock(secondData + kBlockBytes / 2));
    store(second + kMailLine - kBlock, encodedInnerBlock(secondData + kMailLineBytes - kBlockBytes));
    breakLine(out + kMailLine);
    breakLine(second + kMailLine);
  }
  return piece;
}

}  // namespace

MAILTREE_AVX2 std::size_t encodeAvx2(const std::uint8_t* data, std::size_t size, char* out,
                                     std::size_t lineLength) noexcept {
  Piece piece{data, size, out};
  if (lineLength == 0) {
    piece = encodeBlocks(piece);
  } else if (lineLength == kMailLine) {
    piece = encodeLinePairs(encodeLines(piece, lineLength, 1));
    piece = encodeLines(piece, lineLength, 2);
  } else if (lineLength >= kBlock) {
    piece = encodeLines(piece, lineLength, size);
  }
  const std::size_t written = static_cast<std::size_t>(piece.out - out);
  return written + encodePortable(piece.data, piece.size, piece.out, lineLength);
}

}  // namespace mailtree::base64

#endif
