// mime/coding/Base64.h - the base64 codec, with the widest vector instructions that the processor has.
//
// They are chosen once at run time; portable code gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mailtree::base64 {

/// Upper bound of decode()'s output for `size` characters.
constexpr std::size_t decodedCapacity(std::size_t size) noexcept { return size / 4 * 3 + 3; }

/// Decodes tolerantly (see ContentCoding) into `out`, which holds decodedCapacity(text.size()) bytes.
/// Padding ends a group, not the text: decoding continues after it, unless the padding is at the end of a
/// line and the next line is not base64, as with the footer of a mailing list.
/// @return bytes written.
std::size_t decode(std::string_view text, std::uint8_t* out) noexcept;

/// Exact size of encode()'s output: lines of `lineLength` characters, CRLF after each; 0:
/// one line without a break.
std::size_t encodedSize(std::size_t size, std::size_t lineLength) noexcept;
/// Encodes into `out`, which holds encodedSize(size, lineLength) bytes; returns that size. `lineLength` is a
/// multiple of 4.
std::size_t encode(const std::uint8_t* data, std::size_t size, char* out, std::size_t lineLength) noexcept;

/// The portable versions; tests compare the vector code with them.
std::size_t decodePortable(std::string_view text, std::uint8_t* out) noexcept;
std::size_t encodePortable(const std::uint8_t* data, std::size_t size, char* out,
                           std::size_t lineLength) noexcept;

}  // namespace mailtree::base64
