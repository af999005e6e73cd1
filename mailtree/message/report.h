// message/report.h - finds the report in a message (RFC 6522).
#pragma once

#include <optional>

#include "mailtree/message/Report.h"
#include "mailtree/message/displayed.h"

namespace mailtree {

/// The first report in the message. The reported message follows it.
std::optional<Report> reportIn(const Outline& outline, const Displayed& display);

}  // namespace mailtree
