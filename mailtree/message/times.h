// message/times.h - dates and times as text.
#pragma once

#include <chrono>
#include <string>

#include "mailtree/message/Values.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree {

/// "2026-04-22T11:30:02Z"
std::string timeText(const SorvikSysTime& time);
std::string timeText(std::chrono::sys_seconds time);
/// "2026-04-22T13:30:02+02:00", as the clock of the sender shows it (RFC 3339).
std::string timeText(const Date& date);

}  // namespace mailtree
