// mime/coding/EncodedWord.h - encoded words in header values (RFC 2047), read tolerantly, written strictly.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mailtree {

/// Whether the text holds "=?", the beginning of every encoded word.
constexpr bool mayHoldEncodedWord(std::string_view text) noexcept {
  return text.find("=?") != std::string_view::npos;
}

/// Decodes every encoded word of an unfolded header value to utf-8; other text passes through. Each word's
/// payload is decoded to bytes on its own, then the bytes of adjacent words of one charset are joined and
/// converted together, so that padding in the middle loses nothing and a split multibyte character survives.
/// White space between two words is dropped. What is no well-formed word, or names a charset nobody knows and is
/// not utf-8 either, stays as it is. The result never holds CR, LF or NUL.
std::string decodeEncodedWords(std::string_view value);

enum class WordEncoding { q, b };

/// How a header value is to be encoded.
struct HeaderEncoding {
  int codePage = 65001;  ///< Of the encoded words; 0, or one that cannot carry the text, means utf-8.
  WordEncoding words = WordEncoding::q;
};

/// Appends `utf8` as one or more encoded words separated by a space: each at most 75 characters, no character
/// split. `column` is where the first one begins on its line: it is made to fit in 76, be it there or on a new line
/// that begins with the blanks at the end of `out`.
void appendEncodedWords(std::string_view utf8, const HeaderEncoding& encoding, std::size_t column,
                        std::string& out);

/// Renders unstructured utf-8 text (a Subject) as a header value: ASCII stays, runs of words that hold
/// anything else become encoded words. Text that would read as an encoded word by accident is encoded too. No
/// folding.
std::string encodeUnstructured(std::string_view utf8, const HeaderEncoding& encoding, std::size_t column);

/// The same for a structured field, which may hold encoded words already: they are encoded anew with what must
/// be encoded beside them, and never left decoded, which would make structure of their text.
std::string encodeStructured(std::string_view utf8, const HeaderEncoding& encoding, std::size_t column);

/// B for the code pages whose readers expect it (East Asian, utf-16, KOI8, Arabic, Thai), Q for all others.
WordEncoding preferredWordEncoding(int codePage) noexcept;

/// Folds a header line where it has white space, at 78, or 76 with an encoded word on the line; never inside an
/// encoded word or a quoted string if avoidable, and at 998 by force, so that no line is longer. `line` is
/// "Name: value" without its line break; CR, LF and NUL in it become spaces, so that no value can end its field.
std::string foldHeaderLine(std::string_view line);

}  // namespace mailtree
