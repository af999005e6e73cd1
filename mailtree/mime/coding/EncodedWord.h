// mime/coding/EncodedWord.h - encoded words in header values (RFC 2047), read tolerantly, written strictly.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mailtree/base/Export.h"

namespace mailtree {

/// Whether the text holds "=?", the beginning of every encoded word.
constexpr bool mayHoldEncodedWord(std::string_view text) noexcept {
  return text.find("=?") != std::string_view::npos;
}

/// Decodes every encoded word of an unfolded header value to utf-8; other text passes through. The payload of
/// each word is decoded on its own, then the bytes of adjacent words of one charset are joined and converted
/// together: padding in the middle loses nothing, and a split multibyte character survives. White space
/// between two words is dropped. Malformed words, and words in an unknown charset that are not utf-8, stay as
/// they are. The result never contains CR, LF or NUL.
MAILTREE_API std::string decodeEncodedWords(std::string_view value);

enum class WordEncoding { q, b };

/// How a header value is to be encoded.
struct HeaderEncoding {
  int codePage = 65001;  ///< Of the encoded words; 0, or one that cannot represent the text, means utf-8.
  WordEncoding words = WordEncoding::q;
};

/// Appends `utf8` as one or more encoded words separated by a space: each at most 75 characters, no character
/// split. `column` is where the first one begins on its line. It fits in 76 either there or on a new line
/// that begins with the blanks at the end of `out`.
MAILTREE_API void appendEncodedWords(std::string_view utf8, const HeaderEncoding& encoding,
                                     std::size_t column, std::string& out);

/// Renders unstructured utf-8 text (a Subject) as a header value: ASCII stays, runs of other words become
/// encoded words. Text that happens to look like an encoded word is encoded too. No folding.
MAILTREE_API std::string encodeUnstructured(std::string_view utf8, const HeaderEncoding& encoding,
                                            std::size_t column);

/// The same for a structured field that may contain encoded words: these are encoded again with the text next
/// to them, and never left decoded, because their text could become structure.
MAILTREE_API std::string encodeStructured(std::string_view utf8, const HeaderEncoding& encoding,
                                          std::size_t column);

/// B for the code pages where it is customary (East Asian, utf-16, KOI8, Arabic, Thai), Q for all others.
MAILTREE_API WordEncoding preferredWordEncoding(int codePage) noexcept;

/// Folds a header line at white space, at 78, or 76 with an encoded word on the line; inside an encoded word
/// or a quoted string only if unavoidable, and at 998 anywhere, so no line is longer. `line` is "Name: value"
/// without its line break; CR, LF and NUL in it become spaces, so no value can end its field.
MAILTREE_API std::string foldHeaderLine(std::string_view line);

}  // namespace mailtree
