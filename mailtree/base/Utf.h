// base/Utf.h - utf-8 and utf-16: validation, code points, conversion. Malformed input becomes U+FFFD.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// Whether the bytes are well-formed utf-8 (no surrogates, no overlong forms, nothing above U+10FFFF).
bool isValidUtf8(std::string_view bytes) noexcept;

/// Whether all bytes are below 0x80.
bool isAscii(std::string_view bytes) noexcept;

/// Reads one code point at `position` (which must be inside) and moves past it. A malformed sequence gives
/// kReplacementCharacter and moves past its longest plausible prefix, at least one byte.
char32_t nextCodePoint(std::string_view utf8, std::size_t& position) noexcept;

/// Appends one code point as utf-8; surrogates and values above U+10FFFF are written as U+FFFD.
void appendUtf8(std::string& out, char32_t codePoint);

/// Bytes of the longest prefix of at most `limit` bytes that does not cut a character.
std::size_t utf8PrefixLength(std::string_view utf8, std::size_t limit) noexcept;

/// utf-16 bytes (a trailing half unit and lone surrogates become U+FFFD) to utf-8, appended. A byte-order
/// mark is kept.
void appendUtf16AsUtf8(std::string& out, std::string_view utf16Bytes, bool bigEndian);

std::u16string utf8ToUtf16(std::string_view utf8);

}  // namespace mailtree
