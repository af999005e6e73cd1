// message/times.h - dates and times as text.
#pragma once

#include <chrono>
#include <string>

#include "mailtree/mime/header/Date.h"

namespace mailtree {

/// "2026-04-22T11:30:02Z"
std::string timeText(const SorvikSysTime& time);
std::string timeText(std::chrono::sys_seconds time);

}  // namespace mailtree
