#include "mailtree/message/times.h"

#include <array>
#include <cstdio>

namespace mailtree {

std::string timeText(const SorvikSysTime& time) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04u-%02u-%02uT%02u:%02u:%02uZ", time.m_year, time.m_month,
                time.m_day, time.m_hour, time.m_minute, time.m_second);
  return text.data();
}

std::string timeText(std::chrono::sys_seconds moment) {
  SorvikSysTime time;
  time.fromUnixTime(moment.time_since_epoch().count());
  return timeText(time);
}

}  // namespace mailtree
