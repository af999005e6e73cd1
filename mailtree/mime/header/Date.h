// mime/header/Date.h - dates in mail: RFC 5322 text to a record of fields and back.
#pragma once

#include <cstdint>
#include <string_view>

#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// A date and time as fields.
class MAILTREE_API SorvikSysTime final : public SorvikObject {
 public:
  std::uint16_t m_year = 0;
  std::uint16_t m_month = 0;  ///< 1 to 12.
  std::uint16_t m_day = 0;    ///< 1 to 31.
  std::uint16_t m_hour = 0;
  std::uint16_t m_minute = 0;
  std::uint16_t m_second = 0;
  std::uint16_t m_milliseconds = 0;
  std::uint16_t m_dayOfWeek = 0;  ///< 0 Sunday.
  bool m_isUtc = true;

  /// The current time in GMT.
  void getCurrentGmt();
  void copyFrom(const SorvikSysTime& other) { *this = other; }
  /// Seconds since 1970-01-01 00:00 GMT, the fields taken as GMT.
  std::int64_t toUnixTime() const noexcept;
  /// Sets every field, milliseconds to 0. Seconds outside the years 1 to 9999 are clamped to that range.
  void fromUnixTime(std::int64_t seconds) noexcept;
  /// Compares all fields but the day of the week, which follows from the others.
  bool operator==(const SorvikSysTime& other) const noexcept;
};

class MAILTREE_API _svDateParser {
 public:
  /// Reads a date into `time`, in GMT. Accepts RFC 5322, its obsolete forms, and forms found in real mail:
  /// two-digit years, no weekday, no seconds, zone names, comments, asctime order, ISO 8601. A numeric offset
  /// takes precedence over a zone name; without a known zone the time counts as GMT. A leap second is the
  /// first second of the next minute.
  /// @return false when the text is not a date; `time` is then unchanged.
  static bool parseRFC822Date(const char* text, SorvikSysTime& time);
  static bool parse(std::string_view text, SorvikSysTime& time);
  /// The same, with the minutes that the clock of the text is ahead of GMT.
  static bool parse(std::string_view text, SorvikSysTime& time, int& offsetMinutes);
  /// Appends the current date with the host's zone offset, such as "Sat, 21 Nov 2026 08:30:00 +0100".
  static void generateCurrentDateRFC822(StringBuffer& out);
  /// Appends a time in GMT as a clock shows it that is ahead of GMT by so many minutes, clamped to 99:59.
  static void generateDateRFC822(std::int64_t unixTime, int offsetMinutes, StringBuffer& out);
};

}  // namespace mailtree
