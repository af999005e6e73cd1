#include "mailtree/message/times.h"

#include <array>
#include <cstdio>

namespace mailtree {
namespace {

constexpr std::chrono::minutes kGmt{0};

}  // namespace

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

std::string timeText(const Date& date) {
  constexpr std::chrono::hours kDay{24};
  const std::chrono::minutes offset = date.offset > -kDay && date.offset < kDay ? date.offset : kGmt;
  std::string text = timeText(date.time + offset);
  if (offset == kGmt) return text;
  std::array<char, 16> zone{};
  const auto minutes = static_cast<unsigned>(std::chrono::abs(offset).count());
  std::snprintf(zone.data(), zone.size(), "%c%02u:%02u", offset < kGmt ? '-' : '+', minutes / 60,
                minutes % 60);
  text.back() = zone.front();
  return text.append(zone.data() + 1);
}

}  // namespace mailtree
