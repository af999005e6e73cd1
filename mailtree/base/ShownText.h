// base/ShownText.h - foreign text shown to people: harmless, and never to be taken for the words around it.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Whether a character is drawn in its place and has no other effect on a terminal: no control character,
/// direction override or invisible mark.
bool isHarmless(char32_t c);

/// Returns the text as one harmless line: control characters, line breaks, other unsafe characters
/// and malformed bytes become U+FFFD, a tab becomes a space. The author of a message cannot control
/// the user's terminal.
std::string printable(std::string_view text);

/// The same for a text of several lines. Each line ends in LF; tabs are kept.
std::string printableLines(std::string_view text);

/// The same in quotes, so that it cannot pass for the words around it: quotes, backslashes and square
/// brackets are escaped, characters that look like brackets too.
std::string inQuotes(std::string_view text);
/// Unchanged when it is one ASCII word without the punctuation of output, such as an address or
/// a media type; else in quotes.
std::string wordOrQuoted(std::string_view text);
/// Unchanged when it can only be read as one table cell; else in quotes.
std::string cellOrQuoted(std::string_view text);
/// Returns one harmless line in which single spaces separate words, so that no gap looks like a column break.
std::string singleSpaced(std::string_view text);

}  // namespace mailtree
