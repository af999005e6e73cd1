// mime/charset/CharsetInternal.h - shared by the charset files: the output sink, the single-byte tables, and
// one decoder and encoder per family of charsets.
//
// Decoders and encoders process the whole input: invalid input becomes U+FFFD or "?", and the result is then
// false. They throw only bad_alloc; the operations in Charset.h turn that into a failure.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>

#include "mailtree/base/Avx2.h"
#include "mailtree/base/DataBuffer.h"

namespace mailtree {

inline constexpr std::string_view kReplacementUtf8 = "\xEF\xBF\xBD";

/// Code pages that Charset.h does not name.
inline constexpr int kCpWindows1252 = 1252;
inline constexpr int kCpIso2022Jp = 50220;
inline constexpr int kCpIso2022JpKana = 50221;
inline constexpr int kCpIso2022JpShift = 50222;
inline constexpr int kCpIso2022Kr = 50225;
inline constexpr int kCpEucJp = 51932;
inline constexpr int kCpHz = 52936;

/// Appends to a string or a buffer.
class ByteSink {
 public:
  explicit ByteSink(std::string& text) noexcept : m_text(&text) {}
  explicit ByteSink(DataBuffer& bytes) noexcept : m_bytes(&bytes) {}

  /// Room for n more bytes, which the caller writes; shrink() returns the unused part.
  char* grow(std::size_t n) {
    if (m_text) {
      m_text->resize(m_text->size() + n);
      return m_text->data() + m_text->size() - n;
    }
    unsigned char* const added = m_bytes->appendUninitialized(n);
    if (!added) throw std::bad_alloc();
    return reinterpret_cast<char*>(added);
  }
  void shrink(std::size_t n) noexcept {
    if (m_text) m_text->resize(m_text->size() - n);
    if (m_bytes) m_bytes->shorten(n);
  }
  void append(std::string_view bytes) {
    if (m_text) m_text->append(bytes);
    if (m_bytes && !m_bytes->append(bytes)) throw std::bad_alloc();
  }
  std::size_t size() const noexcept { return m_text ? m_text->size() : m_bytes->getSize(); }
  std::string_view view() const noexcept { return m_text ? std::string_view(*m_text) : m_bytes->view(); }

 private:
  std::string* m_text = nullptr;
  DataBuffer* m_bytes = nullptr;
};

/// A character as utf-8 in one number: its bytes, the first one lowest, and their count
/// in the top byte. A decoder stores four bytes and advances by the count, without a
/// branch. Characters of four bytes do not fit.
using PackedUtf8 = std::uint32_t;
inline constexpr PackedUtf8 kPackedLength = 0x07000000;
inline constexpr PackedUtf8 kPackedDamage = 0x80000000;  ///< Flag: the input byte was invalid.

constexpr PackedUtf8 packUtf8(char16_t c) noexcept {
  const std::uint32_t u = c;
  if (u < 0x80) return u | 1 << 24;
  if (u < 0x800) return (0xC0 | u >> 6) | (0x80 | (u & 0x3F)) << 8 | 2 << 24;
  return (0xE0 | u >> 12) | (0x80 | (u >> 6 & 0x3F)) << 8 | (0x80 | (u & 0x3F)) << 16 | 3 << 24;
}

inline constexpr PackedUtf8 kPackedReplacement = packUtf8(0xFFFD) | kPackedDamage;

constexpr std::size_t packedLength(PackedUtf8 c) noexcept { return c >> 24 & 7; }

/// Stores four bytes, packedLength() of them valid; returns where the next character goes.
inline char* storePacked(PackedUtf8 c, char* to) noexcept {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<char>(c >> (8 * i));
  return to + packedLength(c);
}

/// A code page of one byte per character. Below 0x80 all of them are ASCII.
struct SingleByteCodec {
  static constexpr std::size_t kBlocks = 18;

  int codePage;
  std::array<PackedUtf8, 256> utf8;  ///< By byte.
  /// UTF-8 of two-byte characters, by byte - 0x80; zero otherwise.
  std::array<std::uint8_t, 128> first, second;
  std::array<std::uint8_t, 1024> block;  ///< By the upper bits of a code point; block 0 is empty.
  std::array<std::uint8_t, 64 * kBlocks>
      bytes;  ///< By block and lower six bits; 0 where there is no such byte.
};

using HighHalf = std::array<char16_t, 128>;

constexpr SingleByteCodec makeSingleByteCodec(int codePage, const HighHalf& decodeTable,
                                              const HighHalf& encodeTable) {
  SingleByteCodec codec{codePage, {}, {}, {}, {}, {}};
  std::uint8_t blocks = 1;
  for (unsigned i = 0; i < 128; ++i) {
    codec.utf8[i] = packUtf8(static_cast<char16_t>(i));
    codec.utf8[i + 128] = decodeTable[i] ? packUtf8(decodeTable[i]) : kPackedReplacement;
    if (packedLength(codec.utf8[i + 128]) == 2) {
      codec.first[i] = static_cast<std::uint8_t>(codec.utf8[i + 128]);
      codec.second[i] = static_cast<std::uint8_t>(codec.utf8[i + 128] >> 8);
    }
    if (!encodeTable[i]) continue;
    std::uint8_t& block = codec.block[encodeTable[i] >> 6];
    if (!block) block = blocks++;
    codec.bytes[block * 64U + (encodeTable[i] & 0x3F)] = static_cast<std::uint8_t>(i + 128);
  }
  return codec;
}

inline constexpr std::size_t kSingleByteCodecCount = 50;
extern const SingleByteCodec kSingleByteCodecs[kSingleByteCodecCount];

/// Null when the code page is not a single-byte one.
const SingleByteCodec* singleByteCodec(int codePage) noexcept;
bool decodeSingleByte(const SingleByteCodec& codec, std::string_view bytes, ByteSink& out);
bool encodeSingleByte(const SingleByteCodec& codec, std::string_view utf8, ByteSink& out);

// The inner loop of decodeSingleByte, in a portable and a vector version.

/// How many bytes past the end of its output decoding may write.
inline constexpr std::size_t kSingleByteMargin = 16;
std::size_t count8bitPortable(std::string_view bytes) noexcept;
/// Writes the characters to `to`, which has room for all and kSingleByteMargin more; returns the end.
/// `isValid` becomes false when a byte was invalid.
char* decodeSingleBytePortable(const SingleByteCodec& codec, std::string_view bytes, char* to,
                               bool& isValid) noexcept;
#if MAILTREE_HAS_AVX2_PATH
std::size_t count8bitAvx2(std::string_view bytes) noexcept;
char* decodeSingleByteAvx2(const SingleByteCodec& codec, std::string_view bytes, char* to,
                           bool& isValid) noexcept;
#endif

bool decodeUtf16(std::string_view bytes, bool bigEndian, ByteSink& out);
bool encodeUtf16(std::string_view utf8, bool bigEndian, ByteSink& out);

/// The East Asian charsets of one and two bytes, through tables built from ICU on first use.
bool isDoubleByte(int codePage) noexcept;
bool decodeDoubleByte(int codePage, std::string_view bytes, ByteSink& out);
/// Encodes as ICU does, by table where the code page has one.
bool encodeWithTable(int codePage, std::string_view utf8, ByteSink& out);

/// iso-2022-jp in all the forms found in mail.
bool isIso2022Jp(int codePage) noexcept;
bool decodeIso2022Jp(std::string_view bytes, ByteSink& out);
bool encodeIso2022Jp(std::string_view utf8, ByteSink& out);

/// ICU's name of the converter that encodes a code page (and, unless a table does
/// it, decodes it); null when there is none.
const char* icuConverterOf(int codePage) noexcept;
bool decodeWithIcu(const char* converter, std::string_view bytes, ByteSink& out);
bool encodeWithIcu(const char* converter, std::string_view utf8, ByteSink& out);
/// Decodes a few bytes to utf-16; empty when any is invalid.
std::u16string decodeShortWithIcu(const char* converter, std::string_view bytes);

/// Whether 7-bit bytes are ASCII in the code page.
bool isAsciiCompatible(int codePage) noexcept;

}  // namespace mailtree
