// message/attribution.h - the line above a quoted text that says whose it is.
#pragma once

#include <string>

#include "mailtree/message/Message.h"

namespace mailtree {

/// "On Sun, 22 Nov 2026 at 12:00, Anna Berg wrote:"; without the time when the message has no usable date.
std::string attributionOf(const Message& message);

}  // namespace mailtree
