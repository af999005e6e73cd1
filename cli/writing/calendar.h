// cli/writing/calendar.h - a meeting request or reply as an alternative of the text (RFC 6047).
#pragma once

#include <optional>
#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

struct CalendarOptions {
  std::optional<std::string> file, method;

  bool any() const { return file.has_value(); }
  int countOfStandardInput() const { return file == "-"; }
};

void addCalendarOptions(CLI::App& verb, CalendarOptions& options);

struct Calendar {
  std::string method;
  DataBuffer text;  ///< utf-8, CRLF.
};

/// usage or unreadable after reporting an error.
Exit readCalendar(const CalendarOptions& options, std::optional<Calendar>& calendar);

/// Adds the calendar after the text bodies, or replaces the existing one. The rest of the message is kept.
/// @return whether it is found when the message is read. Some enclosures, such as a digest, have no place for
///         it.
bool putCalendar(Email2& email, Calendar& calendar, LogBase& log);

}  // namespace mailtree::cli
