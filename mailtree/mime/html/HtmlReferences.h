// mime/html/HtmlReferences.h - character references ("&amp;", "&#65;") in HTML; not included outside mime/.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mailtree {

/// Reads the numeric reference at the start of a text, its semicolon optional as in browsers.
/// @param codePoint  receives its character; U+FFFD for an invalid number.
/// @return its length; 0 when there is none, `codePoint` is then unchanged.
std::size_t readNumericReference(std::string_view text, char32_t& codePoint) noexcept;

/// An attribute value with its references decoded: numeric ones, and the named ones of markup and of ASCII
/// punctuation. Others stay.
std::string decodeReferences(std::string_view value);

}  // namespace mailtree
