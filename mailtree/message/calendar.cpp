#include "mailtree/message/calendar.h"

#include <algorithm>
#include <string>

namespace mailtree {
namespace {

bool isCalendar(const PartRow& row) {
  return row.isLeaf() &&
         (equalsNoCase(row.contentType, "text/calendar") || equalsNoCase(row.contentType, "application/ics"));
}

std::string upperCase(std::string_view text) {
  std::string upper(text);
  std::ranges::transform(upper, upper.begin(), toUpperAscii);
  return upper;
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

}  // namespace mailtree
