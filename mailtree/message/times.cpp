#include "mailtree/message/times.h"

#include <algorithm>

namespace mailtree {
namespace {

constexpr std::chrono::minutes kGmt{0};

/// With leading zeros; more digits when the number needs them.
void appendDigits(std::string& text, unsigned number, std::size_t least) {
  const std::string digits = std::to_string(number);
  text.append(least - std::min(least, digits.size()), '0').append(digits);
}

}  // namespace

std::string timeText(const SorvikSysTime& time) {
  std::string text;
  appendDigits(text, time.m_year, 4);
  appendDigits(text.append("-"), time.m_month, 2);
  appendDigits(text.append("-"), time.m_day, 2);
  appendDigits(text.append("T"), time.m_hour, 2);
  appendDigits(text.append(":"), time.m_minute, 2);
  appendDigits(text.append(":"), time.m_second, 2);
  return text.append("Z");
}

std::string timeText(std::chrono::sys_seconds moment) {
  SorvikSysTime time;
  time.fromUnixTime(moment.time_since_epoch().count());
  return timeText(time);
}

std::string timeText(const Date& date) {
  constexpr std::chrono::hours kDay{24};
  const std::chrono::minutes offset = date.offset > -kDay && date.offset < kDay ? date.offset : kGmt;
  std::string text = timeText(date.time + offset);
  if (offset == kGmt) return text;
  const auto minutes = static_cast<unsigned>(std::chrono::abs(offset).count());
  text.back() = offset < kGmt ? '-' : '+';
  appendDigits(text, minutes / 60, 2);
  appendDigits(text.append(":"), minutes % 60, 2);
  return text;
}

}  // namespace mailtree
