// cli/writing/dates.h - dates as a user gives them for a header.
#pragma once

#include <string_view>

namespace mailtree::cli {

/// Whether a text can be written as the date of a message just as it is (RFC 5322, 3.3). The library's reader
/// takes more: forms that no header may hold, and days of the week that are others.
bool isHeaderDate(std::string_view text);

}  // namespace mailtree::cli
