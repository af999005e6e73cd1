// mime/coding/QuotedPrintableInternal.h - what the portable and the vector quoted-printable share: the parts in which
// the time goes, each in both ways.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Avx2.h"
#include "mailtree/mime/coding/QuotedPrintable.h"

namespace mailtree::quotedPrintable {

inline constexpr std::size_t kMaxLine = 76;
inline constexpr std::size_t kEscapeSize = 3;
inline constexpr std::string_view kBreak = "\r\n";
inline constexpr char kUpperHex[] = "0123456789ABCDEF";

constexpr unsigned char byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

/// Bytes that an encoded text may hold as they are, blanks included.
constexpr bool isLiteral(char c) noexcept { return (c >= ' ' && c <= '~' && c != '=') || c == '\t'; }

inline constexpr std::uint16_t kNoHex = 0x100;

/// Value of each hexadecimal digit, kNoHex for anything else, shifted left by Shift.
template <int Shift>
inline constexpr std::array<std::uint16_t, 256> kHex = [] {
  std::array<std::uint16_t, 256> values{};
  for (int c = 0; c < 256; ++c) {
    const int value = hexValue(static_cast<char>(c));
    values[static_cast<unsigned>(c)] = value < 0 ? kNoHex : static_cast<std::uint16_t>(value << Shift);
  }
  return values;
}();

/// The byte of two hexadecimal digits, or something of kNoHex and above.
inline std::uint16_t hexPair(const char* p) noexcept { return kHex<4>[byteOf(p[0])] | kHex<0>[byteOf(p[1])]; }

/// Decodes what begins with the "=" at p when that is no escape: a soft line break, or nothing.
void decodeOddEquals(const char*& p, const char* end, std::uint8_t*& out) noexcept;

/// What stands for a byte, and its length in the fourth place: a copy is one store, without a branch.
inline constexpr std::array<std::array<char, kEscapeSize + 1>, 256> kCodes = [] {
  std::array<std::array<char, kEscapeSize + 1>, 256> codes{};
  for (unsigned c = 0; c < 256; ++c) {
    const char byte = static_cast<char>(c);
    codes[c] = {'=', kUpperHex[c >> 4], kUpperHex[c & 15], char{kEscapeSize}};
    if (isLiteral(byte)) codes[c] = {byte, '\0', '\0', 1};
  }
  return codes;
}();

/// Stores kEscapeSize + 1 bytes; where the next byte's go.
inline char* putCode(char c, char* to) noexcept {
  const std::array<char, kEscapeSize + 1>& code = kCodes[byteOf(c)];
  std::memcpy(to, code.data(), code.size());
  return to + code[kEscapeSize];
}

/// Whether what begins a line of encoded text had better be escaped. Mail transports change a leading dot and
/// a leading "From "; two dashes with something behind them could be the boundary of a multipart around this
/// text.
bool opensWithTrouble(std::string_view line) noexcept;

/// How far behind its end the encoding of unbroken text may write.
inline constexpr std::size_t kUnbrokenMargin = 96;
/// Encodes bytes without breaking lines; where that ended. `to` has room for three times as many and
/// kUnbrokenMargin more.
char* encodeUnbrokenPortable(std::string_view bytes, char* to) noexcept;

/// How many bytes at the front of a text are whole lines that stay as they are, breaks included.
std::size_t plainLinesPortable(std::string_view text) noexcept;

#if MAILTREE_HAS_AVX2_PATH
std::size_t decodeAvx2(std::string_view text, std::uint8_t* out) noexcept;
/// @param readable  how many bytes may be read from the beginning of `bytes`, those behind their end too.
char* encodeUnbrokenAvx2(std::string_view bytes, std::size_t readable, char* to) noexcept;
std::size_t plainLinesAvx2(std::string_view text) noexcept;
#endif

}  // namespace mailtree::quotedPrintable
