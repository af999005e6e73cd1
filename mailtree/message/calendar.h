// message/calendar.h - invitations and other calendar objects in messages (RFC 5545, 6047).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mailtree/message/Message.h"
#include "mailtree/message/outline.h"

namespace mailtree {

/// The value of the METHOD property (RFC 5545, 3.7.2); empty when there is none. Borrowed.
std::string_view calendarMethod(std::string_view calendar);

/// Why bytes are no calendar; null when they are one, in utf-8.
const char* calendarProblem(std::string_view bytes);
/// The calendar with CRLF as line breaks, without a byte order mark.
std::string calendarText(std::string_view bytes);

/// Adds a calendar after the texts, or replaces the one there is; everything else stays.
/// @param text  moved from.
/// @return whether it is found when the message is read. Some enclosures, such as a digest, have no place for
///         it.
bool putCalendar(Email2& email, const std::string& method, DataBuffer& text, LogBase& log);

/// The calendar of a message: the first one that is not attached as a file, else the first.
std::optional<Calendar> calendarIn(const Outline& outline);

}  // namespace mailtree
