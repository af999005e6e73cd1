#include "mailtree/message/calendar.h"

#include <algorithm>
#include <string>
#include <utility>

#include "mailtree/base/Utf.h"
#include "mailtree/message/content.h"
#include "mailtree/mime/header/Token.h"

namespace mailtree {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr const char* kAlternative = "multipart/alternative";

bool isCalendar(const PartRow& row) {
  return row.isLeaf() &&
         (equalsNoCase(row.contentType, "text/calendar") || equalsNoCase(row.contentType, "application/ics"));
}

std::string upperCase(std::string_view text) {
  std::string upper(text);
  std::ranges::transform(upper, upper.begin(), toUpperAscii);
  return upper;
}

std::string_view withoutMark(std::string_view bytes) {
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  return bytes;
}

/// ASCII fits everywhere; any other calendar makes a message without a charset utf-8. When the message's
/// charset cannot encode the calendar, it is written in utf-8 anyway.
int codePageFor(const Email2& email, const DataBuffer& text) {
  const int chosen = email.emailCodePage();
  const bool isOpen = chosen == 0 || chosen == kCpUsAscii;
  return isOpen && !text.is7bit(0) ? kCpUtf8 : 0;
}

Email2* find(const Email2& email, EnclosureKind kind) {
  return email.findMultipartEnclosure(static_cast<int>(kind), 0);
}

/// The text that the calendar goes beside, together with its related items.
Email2* textBeside(Email2& email) {
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
  Email2* const text = textBeside(email);
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

/// An enclosure without texts, such as a digest, has no place for a calendar: it gets one beside it.
void ensurePlace(Email2& root, LogBase& log) {
  const bool hasPlace = root.getNumParts() == 0 || root.isMultipartMixed() || root.isMultipartAlternative() ||
                        root.getHtmlAlternative() || root.getPlainTextAlternative();
  if (!hasPlace) root.convertToMultipartX("multipart/mixed", log);
}

}  // namespace

std::string_view calendarMethod(std::string_view calendar) {
  while (!calendar.empty()) {
    const std::size_t end = std::min(calendar.find('\n'), calendar.size());
    const std::string_view line = trimRight(calendar.substr(0, end));
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos && equalsNoCase(line.substr(0, line.find_first_of(":;")), "METHOD"))
      return trim(line.substr(colon + 1));
    calendar.remove_prefix(std::min(end + 1, calendar.size()));
  }
  return {};
}

std::optional<Calendar> calendarIn(const Outline& outline) {
  const PartRow* found = nullptr;
  for (const PartRow& row : outline.rows) {
    if (!isCalendar(row) || (found && row.isAttachment)) continue;
    found = &row;
    if (!row.isAttachment) break;
  }
  if (!found) return std::nullopt;
  Calendar calendar{{}, textOf(*found)};
  const std::string* const method = found->node->m_contentType.m_otherParams.find("method");
  calendar.method = upperCase(trim(method ? std::string_view(*method) : calendarMethod(calendar.text)));
  return calendar;
}

const char* calendarProblem(std::string_view bytes) {
  if (!isValidUtf8(bytes)) return "the calendar is not valid utf-8";
  const bool isOne = beginsWithNoCase(trimLeft(withoutMark(bytes)), "BEGIN:VCALENDAR");
  return isOne ? nullptr : "not a calendar: it does not begin with BEGIN:VCALENDAR";
}

std::string calendarText(std::string_view bytes) { return withCrlf(withoutMark(bytes)); }

bool putCalendar(Email2& email, const std::string& method, DataBuffer& text, LogBase& log) {
  labelUntypedBody(email, log);
  moveIntoMixed(email, log);
  const int codePage = codePageFor(email, text);
  EmailPtr part(Email2::createCalendarAlternativeUtf8(*email.m_common, text, method.c_str(), codePage, log));
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

Result<void> Message::setCalendar(const Calendar& calendar) {
  const auto failed = [](std::string problem) {
    return Error{ErrorCode::badValue, std::move(problem), "text/calendar"};
  };
  if (const char* const problem = calendarProblem(calendar.text)) return failed(problem);
  if (contains(calendar.text, std::string_view("\0", 1))) return failed("the calendar contains a NUL byte");
  const std::string method(calendar.method.empty() ? calendarMethod(calendar.text) : calendar.method);
  if (method.empty()) return failed("the calendar has no method such as REQUEST");
  if (!isToken(method)) return failed("not a method such as REQUEST: '" + method + "'");
  DataBuffer text;
  if (!text.append(std::string_view(calendarText(calendar.text)))) return noMemory();
  if (Result<void> begun = beginContent(*m_state); !begun) return begun;
  dropSignaturesOver(*m_state, m_state->displayed().textBody);
  LogNull log;
  ensurePlace(m_state->root(), log);
  const bool isPut = putCalendar(m_state->root(), method, text, log);
  endContent(*m_state);
  return isPut ? Result<void>() : Result<void>(noMemory());
}

}  // namespace mailtree
