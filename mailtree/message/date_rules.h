// message/date_rules.h - checks of dates to be set.
#pragma once

#include <string_view>

namespace mailtree {

/// Whether a text is a valid Date field value (RFC 5322, 3.3). The library's parser is more lenient: it
/// accepts other forms and wrong weekdays.
bool isHeaderDate(std::string_view text);

}  // namespace mailtree
