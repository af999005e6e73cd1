#include "mailtree/message/date_rules.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree {
namespace {

constexpr std::string_view kWeekdays[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
constexpr std::string_view kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                        "jul", "aug", "sep", "oct", "nov", "dec"};
constexpr int kFirstYear = 1900;

/// Index of a name in its table, ignoring case; the table's length when it is not there.
template <std::size_t N>
unsigned positionIn(const std::string_view (&names)[N], std::string_view name) {
  const auto isName = [name](std::string_view other) { return equalsNoCase(name, other); };
  return static_cast<unsigned>(std::find_if(names, names + N, isName) - names);
}

bool fits(char c, char shape) {
  if (shape == '0') return isDigitAscii(c);
  if (shape == 'a') return isAlphaAscii(c);
  if (shape == '+') return c == '+' || c == '-';
  return c == shape;
}

/// Removes from the front the first of these shapes that matches: "0" is a digit, "a" a letter, "+" a sign,
/// any other character itself. Empty when none matches.
std::string_view take(std::string_view& rest, std::initializer_list<std::string_view> shapes) {
  for (const std::string_view shape : shapes) {
    if (rest.size() < shape.size() ||
        !std::equal(shape.begin(), shape.end(), rest.begin(), [](char s, char c) { return fits(c, s); }))
      continue;
    const std::string_view taken = rest.substr(0, shape.size());
    rest.remove_prefix(shape.size());
    return taken;
  }
  return {};
}

int numberAtStart(std::string_view text) {
  int number = 0;
  for (std::size_t i = 0; i < text.size() && isDigitAscii(text[i]); ++i)
    number = number * 10 + (text[i] - '0');
  return number;
}

bool isZone(std::string_view text) {
  std::string_view rest = text;
  if (!take(rest, {"+0000"}).empty()) return rest.empty() && numberAtStart(text.substr(3)) < 60;
  return equalsNoCase(text, "gmt") || equalsNoCase(text, "ut");
}

}  // namespace

bool isHeaderDate(std::string_view text) {
  namespace time = std::chrono;
  std::string_view rest = text;
  const std::string_view weekday = take(rest, {"aaa, "});
  const std::string_view day = take(rest, {"00 ", "0 "});
  const std::string_view month = take(rest, {"aaa "});
  const std::string_view year = take(rest, {"0000 "});
  const std::string_view clock = take(rest, {"00:00:00 ", "00:00 "});
  if (day.empty() || month.empty() || year.empty() || clock.empty() || !isZone(rest)) return false;

  SorvikSysTime unused;
  const unsigned monthIndex = positionIn(kMonths, month.substr(0, 3));
  if (monthIndex == std::size(kMonths) || numberAtStart(year) < kFirstYear ||
      !_svDateParser::parse(text, unused))
    return false;
  if (weekday.empty()) return true;
  const time::year_month_day date(time::year(numberAtStart(year)), time::month(monthIndex + 1),
                                  time::day(static_cast<unsigned>(numberAtStart(day))));
  return time::weekday(time::sys_days(date)).c_encoding() == positionIn(kWeekdays, weekday.substr(0, 3));
}

}  // namespace mailtree
