// mime/FlowedText.h - format=flowed (RFC 3676): paragraphs of plain text on lines that programs may join.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Joins the lines of each paragraph and removes space-stuffing. Quoted lines begin with one ">" for each
/// level and a space. The signature separator "-- " is kept, and so is an empty line: some senders leave a
/// soft line break before it.
/// @param text   utf-8 with any line breaks, CRLF, LF or bare CR.
/// @param delSp  whether the blank of a soft line break is deleted too (DelSp=yes), as in text without
/// blanks.
/// @return the text with LF as line breaks.
std::string unwrapFlowed(std::string_view text, bool delSp);

/// The inverse: lines of at most 78 columns as far as there are blanks to break at, and LF as line breaks.
/// Blanks at the end of lines are lost, but for the one of "-- ". unwrapFlowed() without DelSp returns the
/// text. A quoted line is ">" for each level and a space: of "> > text" only the first level is known to be
/// one.
std::string wrapFlowed(std::string_view text);

}  // namespace mailtree
