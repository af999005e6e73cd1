// message/quoting.h - the text of an answer, with the text that it quotes.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/message/Message.h"

namespace mailtree {

/// utf-8 with LF as line breaks. The plain text is flowed (RFC 3676); the HTML is empty when there is none.
struct AnswerText {
  std::string plain, html;
};

/// @param text  goes before what is quoted.
AnswerText answerText(const Message& quoted, Quote quote, std::string_view text);

/// One ">" more before each line (RFC 3676, 4.5): "> new", ">> quoted before", and ">" for an empty line.
std::string quotedLines(std::string_view text);

/// Without control characters and blanks at its ends: a value that goes into a header field or a line.
std::string oneLine(std::string_view value);

}  // namespace mailtree
