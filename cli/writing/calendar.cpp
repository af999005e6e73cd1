#include "cli/writing/calendar.h"

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "mailtree/message/calendar.h"
#include "mailtree/mime/header/Token.h"

namespace mailtree::cli {
namespace {

Exit chooseMethod(const CalendarOptions& options, Calendar& calendar) {
  const std::string own(calendarMethod(calendar.text));
  calendar.method = options.method.value_or(own);
  if (calendar.method.empty()) return usageError("--method", "required because the calendar has no METHOD");
  if (!isToken(calendar.method))
    return usageError("--method", "'" + calendar.method + "' is not a method such as REQUEST");
  if (!own.empty() && !equalsNoCase(own, calendar.method))
    reportError(*options.file, "warning: the calendar has METHOD:" + own);
  return Exit::fine;
}

}  // namespace

void addCalendarOptions(Verb verb, CalendarOptions& options) {
  const Option file = verb.addText("--calendar", options.file,
                                   "Calendar file (.ics) to add as an alternative; - is standard input")
                          .kind(kFile);
  verb.addText("--method", options.method,
               "Method of the calendar, such as REQUEST (default: its METHOD property)")
      .needs(file);
}

Exit readCalendar(const CalendarOptions& options, std::optional<Calendar>& calendar) {
  if (!options.file) return Exit::fine;
  DataBuffer bytes;
  if (!readFile(*options.file, bytes)) return Exit::unreadable;
  if (const char* const problem = calendarProblem(bytes.view())) {
    reportError(*options.file, problem);
    return Exit::unreadable;
  }
  calendar.emplace().text = calendarText(bytes.view());
  return chooseMethod(options, *calendar);
}

}  // namespace mailtree::cli
