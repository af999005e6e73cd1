// cli/writing/calendar.h - a meeting request or answer beside the texts of a message (RFC 6047).
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

/// usage or unreadable after a complaint.
Exit readCalendar(const CalendarOptions& options, std::optional<Calendar>& calendar);

/// Puts the calendar behind the texts, or in place of the one that is there. What the message was stays.
/// @return whether a reader finds it. Some enclosures, such as a digest, have no place for it.
bool putCalendar(Email2& email, Calendar& calendar, LogBase& log);

}  // namespace mailtree::cli
