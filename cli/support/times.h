// cli/support/times.h - dates and times as text.
#pragma once

#include <cstdint>
#include <string>

#include "mailtree/mime/header/Date.h"

namespace mailtree::cli {

/// "2026-04-22T11:30:02Z"
std::string timeText(const SorvikSysTime& time);
std::string timeText(std::int64_t unixSeconds);

}  // namespace mailtree::cli
