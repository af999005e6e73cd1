// message/displayed_text.h - what a reader sees, as plain text, as HTML, and in one line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mailtree/base/LoadBudget.h"
#include "mailtree/message/displayed.h"

namespace mailtree {

class Message;

struct PartLines {
  std::string text;
  bool isStored = false;  ///< The part holds this text as utf-8: nothing had to be converted or replaced.
};
/// The text of a part in utf-8 without a byte order mark, lines ending in LF. Empty for anything but text.
PartLines linesOf(const PartRow& row);

/// Whether a reader sees these lines: the text has no markup, and none of its lines are joined.
bool isShownAsLines(const PartRow& row);

/// The text of a part as it is read: utf-8 without a byte order mark, lines ending in LF, those of
/// format=flowed joined (RFC 3676). HTML stays HTML. Empty for anything but text.
std::string readableTextOf(const PartRow& row);

/// The plain text of a message; parts are separated by an empty line.
/// @param budget  to open the messages of a digest with; null: they are left out.
std::string displayedText(const Outline& outline, const Displayed& display, LoadBudget* budget);

/// The text of a message as an answer quotes it: without the signatures at the ends of its parts (RFC 3676,
/// 4.3).
std::string quotableTextOf(const Message& message);

/// The HTML of a message, with its plain texts escaped; empty when it shows no HTML.
std::string displayedHtml(const Outline& outline, const Displayed& display, LoadBudget* budget);

/// At most `length` characters of a text on one line, without quoted lines.
std::string previewOf(std::string_view text, std::size_t length);

}  // namespace mailtree
