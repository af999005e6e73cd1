// message/calendar.h - invitations and other calendar objects in messages (RFC 5545, 6047).
#pragma once

#include <optional>
#include <string_view>

#include "mailtree/message/Message.h"
#include "mailtree/message/outline.h"

namespace mailtree {

/// The value of the METHOD property (RFC 5545, 3.7.2); empty when there is none. Borrowed.
std::string_view calendarMethod(std::string_view calendar);

/// The calendar of a message: the first one that is not attached as a file, else the first.
std::optional<Calendar> calendarIn(const Outline& outline);

}  // namespace mailtree
