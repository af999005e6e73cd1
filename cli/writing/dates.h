// cli/writing/dates.h - checks of dates that a user typed.
#pragma once

#include <string_view>

namespace mailtree::cli {

/// Whether a text is a valid Date field value (RFC 5322, 3.3). The library's parser is more lenient: it
/// accepts other forms and wrong weekdays.
bool isHeaderDate(std::string_view text);

}  // namespace mailtree::cli
