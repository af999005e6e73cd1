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

/// The same for any reference in text that begins with "&". Named ones are those of HTML 4 and some more.
std::size_t readReference(std::string_view text, char32_t& codePoint) noexcept;

/// An attribute value with its references decoded: numeric ones, and the named ones of markup and of ASCII
/// punctuation. Others stay.
std::string decodeReferences(std::string_view value);

/// The URL that a browser would use: references decoded, white space and controls around it and line breaks
/// and tabs inside it removed.
std::string urlOfReference(std::string_view attribute);

}  // namespace mailtree
