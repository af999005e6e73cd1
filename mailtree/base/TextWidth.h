// base/TextWidth.h - the columns that text takes in a typeface of fixed width, as on a terminal.
#pragma once

#include <cstddef>
#include <string_view>

namespace mailtree {

/// Columns of a text: 0 for combining marks, 2 for East Asian wide characters and emoji.
std::size_t displayWidth(std::string_view utf8) noexcept;

/// The longest prefix that fits in so many columns.
std::string_view fitWidth(std::string_view utf8, std::size_t columns) noexcept;

/// The same with the most columns that any terminal gives a character.
std::size_t maxDisplayWidth(std::string_view utf8) noexcept;
std::string_view fitMaxWidth(std::string_view utf8, std::size_t columns) noexcept;

}  // namespace mailtree
