// mime/header/Token.h - the characters of tokens: words of structured values that need no quotes.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace mailtree {

/// RFC 2045, 5.1
inline constexpr std::array<bool, 256> kIsTokenChar = [] {
  constexpr std::string_view kSpecials = "()<>@,;:\\\"/[]?=";
  std::array<bool, 256> table{};
  for (std::size_t c = ' ' + 1; c < 0x7F; ++c)
    table[c] = kSpecials.find(static_cast<char>(c)) == std::string_view::npos;
  return table;
}();

constexpr bool isTokenChar(char c) noexcept { return kIsTokenChar[static_cast<unsigned char>(c)]; }

constexpr bool isToken(std::string_view text) noexcept {
  return !text.empty() && std::ranges::all_of(text, isTokenChar);
}

}  // namespace mailtree
