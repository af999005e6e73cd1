#include "cli/writing/calendar.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/writing/media_types.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/calendar.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr const char* kAlternative = "multipart/alternative";

/// Reads a calendar into `text`; returns the problem, or null.
const char* parseCalendar(std::string_view bytes, DataBuffer& text) {
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  if (!isValidUtf8(bytes)) return "the calendar is not valid utf-8";
  if (!beginsWithNoCase(trimLeft(bytes), "BEGIN:VCALENDAR"))
    return "not a calendar: it does not begin with BEGIN:VCALENDAR";
  StringBuffer lines(bytes);
  return lines.toCRLF() && text.append(lines.view()) ? nullptr : "not enough memory";
}

Exit chooseMethod(const CalendarOptions& options, Calendar& calendar) {
  const std::string_view own = calendarMethod(calendar.text.view());
  calendar.method = options.method ? *options.method : std::string(own);
  if (calendar.method.empty()) return usageError("--method", "required because the calendar has no METHOD");
  if (!isToken(calendar.method))
    return usageError("--method", "'" + calendar.method + "' is not a method such as REQUEST");
  if (!own.empty() && !equalsNoCase(own, calendar.method))
    reportError(*options.file, "warning: the calendar has METHOD:" + std::string(own));
  return Exit::fine;
}

/// ASCII fits everywhere; any other calendar makes a message without a charset utf-8. When the message's
/// charset cannot encode the calendar, it is written in utf-8 anyway.
int codePageFor(const Email2& email, const Calendar& calendar) {
  const int chosen = email.emailCodePage();
  const bool isOpen = chosen == 0 || chosen == kCpUsAscii;
  return isOpen && !calendar.text.is7bit(0) ? kCpUtf8 : 0;
}

Email2* find(const Email2& email, EnclosureKind kind) {
  return email.findMultipartEnclosure(static_cast<int>(kind), 0);
}

/// The text that the calendar goes beside, together with its related items.
Email2* siblingText(Email2& email) {
  Email2* const html = email.getHtmlAlternative();
  Email2* const text = html ? html : email.getPlainTextAlternative();
  Email2* const related = text ? find(email, EnclosureKind::related) : nullptr;
  return related && holds(*related, *text) ? related : text;
}

/// The enclosure for the calendar: the existing alternatives, or new ones around the text body; without one,
/// the message itself.
Email2* placeFor(Email2& email, LogBase& log) {
  Email2* const alternatives = find(email, EnclosureKind::alternative);
  // A multipart that could not be split is left alone.
  if (alternatives && alternatives->m_body.isEmpty()) return alternatives;
  Email2* const text = siblingText(email);
  if (text && text != &email)
    return encloseBelow(email, *text,
                        EmailPtr(Email2::createEmptyMultipartAlternative(*email.m_common, log)));
  if (text || email.getNumParts() == 0) enclose(email, kAlternative, log);
  return &email;
}

bool replaceCalendar(Email2& email, Email2& old, EmailPtr part, LogBase& log) {
  Email2* const inside = &old == &email ? enclose(email, kAlternative, log) : &old;
  return inside && replaceBelow(email, *inside, std::move(part));
}

}  // namespace

void addCalendarOptions(CLI::App& verb, CalendarOptions& options) {
  CLI::Option* file = addText(verb, "--calendar", options.file,
                              "Calendar file (.ics) to add as an alternative; - is standard input");
  addText(verb, "--method", options.method,
          "Method of the calendar, such as REQUEST (default: its METHOD property)")
      ->needs(file);
}

Exit readCalendar(const CalendarOptions& options, std::optional<Calendar>& calendar) {
  if (!options.file) return Exit::fine;
  DataBuffer bytes;
  if (!readFile(*options.file, bytes)) return Exit::unreadable;
  calendar.emplace();
  if (const char* const problem = parseCalendar(bytes.view(), calendar->text)) {
    reportError(*options.file, problem);
    return Exit::unreadable;
  }
  return chooseMethod(options, *calendar);
}

bool putCalendar(Email2& email, Calendar& calendar, LogBase& log) {
  labelUntypedBody(email, log);
  moveIntoMixed(email, log);
  const int codePage = codePageFor(email, calendar);
  EmailPtr part(Email2::createCalendarAlternativeUtf8(*email.m_common, calendar.text, calendar.method.c_str(),
                                                      codePage, log));
  const Email2* const placed = part.get();
  if (!placed) return false;
  if (Email2* const old = email.getAlternativeByContentType("text/calendar")) {
    replaceCalendar(email, *old, std::move(part), log);
  } else {
    Email2* const place = placeFor(email, log);
    if (!place) return false;
    place->insertSubPartAtIndex(part.release(), place->isMultipartMixed() ? 0 : -1);
  }
  return email.getAlternativeByContentType("text/calendar") == placed;
}

}  // namespace mailtree::cli
