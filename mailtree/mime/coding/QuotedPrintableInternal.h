// mime/coding/QuotedPrintableInternal.h - the hot loops of quoted-printable, each in a portable and a vector
// version, and the code they share.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/coding/Avx512.h"
#include "mailtree/mime/coding/QuotedPrintable.h"

namespace mailtree::quotedPrintable {

inline constexpr std::size_t kMaxLine = 76;
inline constexpr std::size_t kEscapeSize = 3;
inline constexpr std::string_view kBreak = "\r\n";
inline constexpr std::string_view kSoftBreak = "=\r\n";
inline constexpr char kUpperHex[] = "0123456789ABCDEF";

constexpr unsigned char byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

/// Bytes that encoded text may contain unescaped, blanks included.
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

/// The byte of two hexadecimal digits, or a number of at least kNoHex.
inline std::uint16_t hexPair(const char* p) noexcept { return kHex<4>[byteOf(p[0])] | kHex<0>[byteOf(p[1])]; }

/// Decodes the "=" at p when it begins no escape: a soft line break, or a literal "=".
void decodeNonEscape(const char*& p, const char* end, std::uint8_t*& out) noexcept;

/// The encoding of a byte, and its length in the fourth place: copying it is one store, without a branch.
inline constexpr std::array<std::array<char, kEscapeSize + 1>, 256> kCodes = [] {
  std::array<std::array<char, kEscapeSize + 1>, 256> codes{};
  for (unsigned c = 0; c < 256; ++c) {
    const char byte = static_cast<char>(c);
    codes[c] = {'=', kUpperHex[c >> 4], kUpperHex[c & 15], char{kEscapeSize}};
    if (isLiteral(byte)) codes[c] = {byte, '\0', '\0', 1};
  }
  return codes;
}();

/// Stores kEscapeSize + 1 bytes; returns where the next byte goes.
inline char* putCode(char c, char* to) noexcept {
  const std::array<char, kEscapeSize + 1>& code = kCodes[byteOf(c)];
  std::memcpy(to, code.data(), code.size());
  return to + code[kEscapeSize];
}

inline char* putEscape(char c, char* to) noexcept {
  to[0] = '=';
  to[1] = kUpperHex[byteOf(c) >> 4];
  to[2] = kUpperHex[byteOf(c) & 15];
  return to + kEscapeSize;
}

/// Whether the beginning of a line of encoded text should be escaped. Mail transports change a leading dot
/// and a leading "From "; text after two leading dashes could be the boundary of an enclosing multipart.
bool needsEscapedStartAfter(char first, std::string_view line) noexcept;

/// The same; decides most lines by their first character.
inline bool needsEscapedStart(std::string_view line) noexcept {
  const char first = line.empty() ? '\0' : line[0];
  return (first == '.' || first == 'F' || first == '-') && needsEscapedStartAfter(first, line);
}

/// How many bytes beyond its end the encoding of unbroken text may write.
inline constexpr std::size_t kUnbrokenMargin = 96;
/// Encodes bytes without breaking lines; returns the end of the output. `to` has room for three times as many
/// bytes and kUnbrokenMargin more.
char* encodeUnbrokenPortable(std::string_view bytes, char* to) noexcept;

/// The number of bytes at the front of a text that are whole lines needing no change, breaks included.
std::size_t plainLinesPortable(std::string_view text) noexcept;

/// How far a coder came in its text, and how much it wrote.
struct Recoded {
  std::size_t consumed, written;
};

/// Bytes that are encoded in one go.
inline constexpr std::size_t kPiece = 512;
/// Bytes after those that are encoded, which decide how.
inline constexpr std::size_t kSpanReach = 66;

/// Where the lines of an encoded piece end, at their breaks.
struct LineEnds {
  std::size_t count;
  std::array<const char*, kPiece / kBreak.size()> at;
};

#if MAILTREE_HAS_AVX2_PATH
std::size_t decodeAvx2(std::string_view text, std::uint8_t* out) noexcept;
/// @param readable  how many bytes are readable from the beginning of `bytes`, including bytes after its end.
char* encodeUnbrokenAvx2(std::string_view bytes, std::size_t readable, char* to) noexcept;
std::size_t plainLinesAvx2(std::string_view text) noexcept;

/// Decodes at least one block of a text of at least two.
Recoded decodeBlockAvx2(std::string_view text, std::uint8_t* out) noexcept;
std::size_t decodeAvx512(std::string_view text, std::uint8_t* out) noexcept;

/// Encodes bytes without breaking lines, but keeps the line breaks they have and notes them; blanks before
/// those are escaped. The last byte is no CR of a line break, and kSpanReach bytes after it are readable.
/// Returns the end of the output, which has room as for encodeUnbrokenPortable().
char* encodeSpanAvx512(std::string_view bytes, char* to, LineEnds& ends) noexcept;
#endif

}  // namespace mailtree::quotedPrintable
