// mime/coding/Base64Internal.h - code shared by the portable and the vector base64.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "mailtree/mime/coding/Avx512.h"
#include "mailtree/mime/coding/Base64.h"

namespace mailtree::base64 {

inline constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr std::uint8_t kNoDigit = 0xFF;

/// Value of each character, kNoDigit for characters that are not digits (padding included).
inline constexpr std::array<std::uint8_t, 256> kDigitValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (std::uint8_t i = 0; i < 64; ++i) values[static_cast<unsigned char>(kDigits[i])] = i;
  return values;
}();

constexpr std::uint8_t digitValue(char c) noexcept { return kDigitValues[static_cast<unsigned char>(c)]; }

/// Decodes one group: skips characters that are not digits, stops after four digits, after padding that
/// closes a shorter group, or at the end. Moves both pointers.
void decodeGroup(const char*& p, const char* end, std::uint8_t*& out) noexcept;

#if MAILTREE_HAS_AVX2_PATH
std::size_t decodeAvx2(std::string_view text, std::uint8_t* out) noexcept;
std::size_t encodeAvx2(const std::uint8_t* data, std::size_t size, char* out,
                       std::size_t lineLength) noexcept;

std::size_t decodeAvx512(std::string_view text, std::uint8_t* out) noexcept;
std::size_t encodeAvx512(const std::uint8_t* data, std::size_t size, char* out,
                         std::size_t lineLength) noexcept;

/// The position of decoding. Passed by value: references would keep both pointers in
/// memory and store them after each block.
struct Progress {
  const char* p;
  std::uint8_t* out;
};

/// Decode lines of 76, or text without line breaks, up to the first that contains anything but digits.
Progress decodeMailLinesAvx512(Progress at, const char* end, std::size_t breakSize) noexcept;
Progress decodeBlocksAvx512(Progress at, const char* end) noexcept;
#endif

}  // namespace mailtree::base64
