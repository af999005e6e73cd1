// cli/writing/calendar.h - a meeting request or reply as an alternative of the text (RFC 6047).
#pragma once

#include <optional>
#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

class Verb;

struct CalendarOptions {
  std::optional<std::string> file, method;

  bool any() const { return file.has_value(); }
  int countOfStandardInput() const { return file == "-"; }
};

void addCalendarOptions(Verb verb, CalendarOptions& options);

/// usage or unreadable after reporting an error.
Exit readCalendar(const CalendarOptions& options, std::optional<Calendar>& calendar);

}  // namespace mailtree::cli
