#include "mailtree/mime/header/Date.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <optional>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

constexpr std::int64_t kSecondsPerDay = 86'400;
constexpr int kMaxYear = 9999;
constexpr int kMaxOffset = 99 * 60 + 59;  ///< Minutes; as many as a date can hold.

// Any prefix of three letters or more matches, which covers "Sept" and "December".
constexpr std::string_view kMonths[] = {"january",   "february", "march",    "april",
                                        "may",       "june",     "july",     "august",
                                        "september", "october",  "november", "december"};
constexpr std::string_view kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
static_assert(std::size(kMonths) == 12 && std::size(kWeekdays) == 7);

struct Zone {
  std::string_view name;
  int minutes;  // East of Greenwich.
};

// A name used in several parts of the world has the meaning most common in mail. Single letters are
// missing: RFC 822 gave the military zones the wrong sign, so RFC 5322 (4.3) says to treat them as -0000,
// which is GMT here.
constexpr Zone kZones[] = {
    {"UT", 0},     {"UTC", 0},     {"GMT", 0},     {"WET", 0},    {"WEST", 60},  {"BST", 60},   {"IST", 330},
    {"CET", 60},   {"MET", 60},    {"MEZ", 60},    {"CEST", 120}, {"MEST", 120}, {"MESZ", 120}, {"EET", 120},
    {"EEST", 180}, {"SAST", 120},  {"MSK", 180},   {"MSD", 240},  {"PKT", 300},  {"NPT", 345},  {"ICT", 420},
    {"WIB", 420},  {"HKT", 480},   {"SGT", 480},   {"PHT", 480},  {"AWST", 480}, {"JST", 540},  {"KST", 540},
    {"KDT", 600},  {"ACST", 570},  {"ACDT", 630},  {"AEST", 600}, {"AEDT", 660}, {"NZST", 720}, {"NZDT", 780},
    {"BRT", -180}, {"BRST", -120}, {"ART", -180},  {"NST", -210}, {"NDT", -150}, {"AST", -240}, {"ADT", -180},
    {"EST", -300}, {"EDT", -240},  {"CST", -360},  {"CDT", -300}, {"MST", -420}, {"MDT", -360}, {"PST", -480},
    {"PDT", -420}, {"AKST", -540}, {"AKDT", -480}, {"HST", -600}, {"HDT", -540}, {"SST", -660},
};

constexpr bool isLeapYear(int year) noexcept { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int daysInMonth(int year, int month) noexcept {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Days since 1970-01-01 of a day in the Gregorian calendar. Years begin in March, which
// puts the leap day last.
constexpr std::int64_t daysFromDate(int year, int month, int day) noexcept {
  const std::int64_t y = month > 2 ? year : year - 1;
  const std::int64_t monthFromMarch = (month + 9) % 12;
  const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
  const std::int64_t leapDays = y / 4 - y / 100 + y / 400;
  return 365 * y + leapDays + dayOfYear - 719'468;
}
static_assert(daysFromDate(1970, 1, 1) == 0 && daysFromDate(2000, 3, 1) == 11'017);

constexpr std::int64_t secondOfDay(int hour, int minute, int second) noexcept {
  return std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second;
}

constexpr std::int64_t kFirstSecond = daysFromDate(1, 1, 1) * kSecondsPerDay;
constexpr std::int64_t kLastSecond = daysFromDate(kMaxYear + 1, 1, 1) * kSecondsPerDay - 1;

// RFC 5322, 4.3: 00-49 is 2000-2049, 50-99 is 1950-1999, and three digits count from 1900. 000-049
// is read like 00-49.
int fullYear(int year, std::size_t digits) noexcept {
  if (year < 50) return year + 2000;
  if (year < 100 || digits == 3) return year + 1900;
  return year;
}

// 1 to 12; 0 when it is not a month.
int monthOfName(std::string_view word) noexcept {
  if (word.size() < 3) return 0;
  const auto* found = std::find_if(std::begin(kMonths), std::end(kMonths),
                                   [word](std::string_view month) { return beginsWithNoCase(month, word); });
  return found == std::end(kMonths) ? 0 : static_cast<int>(found - std::begin(kMonths)) + 1;
}

// The same for the first three letters, the first of them a capital.
int monthOfShortName(std::string_view name) noexcept {
  const auto* found = std::ranges::find_if(kMonths, [name](std::string_view month) {
    return name[0] == toUpperAscii(month[0]) && name[1] == month[1] && name[2] == month[2];
  });
  return found == std::end(kMonths) ? 0 : static_cast<int>(found - std::begin(kMonths)) + 1;
}

std::optional<int> minutesOfZone(std::string_view name) noexcept {
  const auto* found = std::find_if(std::begin(kZones), std::end(kZones),
                                   [name](const Zone& zone) { return equalsNoCase(zone.name, name); });
  if (found == std::end(kZones)) return std::nullopt;
  return found->minutes;
}

// Reads the tokens of the text once, in any order: a number before a colon begins the time, a name is a month
// or a zone, a sign after the time begins the offset, and the remaining numbers are day and year, or year,
// month and day. Weekdays and other words are ignored. Nearly all dates are written in one form, which is
// read without tokens.
class DateReader {
 public:
  explicit DateReader(std::string_view text) noexcept : m_rest(text) {}

  std::optional<SorvikSysTime> read() noexcept {
    if (readUsualForm()) return result();
    while (!m_rest.empty()) {
      if (!readToken()) return std::nullopt;
    }
    return result();
  }

  /// East of Greenwich; known once the text is read.
  int offsetMinutes() const noexcept { return (m_haveOffset ? m_offsetSeconds : m_zoneSeconds) / 60; }

 private:
  struct Number {
    int value = 0;
    std::size_t digits = 0;
  };

  // "Mon, 23 Nov 2026 08:09:10 +0100", with or without the weekday and a "(CET)" at the end. False for
  // anything else and for what is out of range: the tokens decide what it means.
  bool readUsualForm() noexcept {
    const std::string_view text = withoutWeekday(m_rest);
    const std::size_t dayDigits = text.size() > 1 && text[1] == ' ' ? 1 : 2;
    constexpr std::string_view kForm = " Mon 0000 00:00:00 +0000";
    if (text.size() < dayDigits + kForm.size()) return false;
    const std::string_view day = text.substr(0, dayDigits), rest = text.substr(dayDigits, kForm.size());
    if (!hasForm(day, kForm.substr(5, dayDigits)) || !hasForm(rest, kForm)) return false;
    if (!isNothingOrComment(text.substr(dayDigits + kForm.size()))) return false;

    const int hour = valueOf(rest.substr(10, 2)), minute = valueOf(rest.substr(13, 2)),
              second = valueOf(rest.substr(16, 2)), offset = valueOf(rest.substr(20, 4));
    const int month = monthOfShortName(rest.substr(1, 3));
    if (!month || hour > 23 || minute > 59 || second > 60 || offset % 100 > 59) return false;
    addDateNumber({valueOf(day), dayDigits});
    addDateNumber({valueOf(rest.substr(5, 4)), 4});
    m_month = month;
    m_hour = hour;
    m_minute = minute;
    m_second = second;
    setOffset({offset, 4}, rest[19] == '-' ? -1 : 1);
    return true;
  }

  static std::string_view withoutWeekday(std::string_view text) noexcept {
    const bool isWeekday = text.size() > 5 && text[3] == ',' && text[4] == ' ' &&
                           std::ranges::find(kWeekdays, text.substr(0, 3)) != std::end(kWeekdays);
    return isWeekday ? text.substr(5) : text;
  }

  // Where the form has a digit, a letter or a sign, so has the text, and the same character elsewhere.
  static bool hasForm(std::string_view text, std::string_view form) noexcept {
    return std::ranges::equal(text, form, [](char c, char f) {
      if (f == '0') return isDigitAscii(c);
      if (f == '+') return c == '+' || c == '-';
      return isAlphaAscii(f) || c == f;
    });
  }

  static bool isNothingOrComment(std::string_view text) noexcept {
    if (text.empty()) return true;
    return text.size() > 3 && text.starts_with(" (") && text.ends_with(')') &&
           std::ranges::all_of(text.substr(2, text.size() - 3), isAlphaAscii);
  }

  static int valueOf(std::string_view digits) noexcept {
    int value = 0;
    for (const char c : digits) value = value * 10 + (c - '0');
    return value;
  }

  bool readToken() noexcept {
    const char c = m_rest.front();
    if (isDigitAscii(c)) return readNumber();
    if (isAlphaAscii(c)) {
      readWord();
      return true;
    }
    if ((c == '+' || c == '-') && m_haveTime && m_rest.size() > 1 && isDigitAscii(m_rest[1])) {
      readOffset();
      return true;
    }
    if (c == '(') {
      skipComment();
      return true;
    }
    m_rest.remove_prefix(1);
    return true;
  }

  bool readNumber() noexcept {
    const Number number = takeNumber();
    if (continuesTime()) return readTime(number);
    if (isCompactTime(number)) return takeCompactTime(number);
    if (number.digits == 8) return takeCompactDate(number);
    if (number.digits == 4 && m_haveTime && m_month && m_numberCount == 2) {
      setOffset(number, 1);  // the sign is missing
      return true;
    }
    addDateNumber(number);
    // The dash in "2002-12-13" does not begin an offset, even after the time.
    if (!m_rest.empty() && m_rest.front() == '-' && !m_haveOffset && m_numberCount < 3 && !m_month)
      m_rest.remove_prefix(1);
    return true;
  }

  // Whether the text after a number makes it the hour: a colon, or a dot once day, month and year are known.
  bool continuesTime() noexcept {
    if (m_haveTime) return false;
    const std::string_view next = trimLeft(m_rest);
    if (next.starts_with(':')) return true;
    return m_month && m_numberCount == 2 && m_rest.size() > 1 && m_rest[0] == '.' && isDigitAscii(m_rest[1]);
  }

  bool readTime(Number hour) noexcept {
    const char separator = trimLeft(m_rest).front();
    const std::optional<Number> minute = takeTimePart(separator);
    if (!minute || hour.digits > 2) return false;
    const std::optional<Number> second = takeTimePart(separator);
    if (second) takeFraction();
    m_hour = hour.value;
    m_minute = minute->value;
    m_second = second ? second->value : 0;
    m_haveTime = true;
    return m_hour <= 23 && m_minute <= 59 && m_second <= 60;
  }

  // ":59" and the like, blanks allowed; consumes nothing when absent.
  std::optional<Number> takeTimePart(char separator) noexcept {
    std::string_view next = trimLeft(m_rest);
    if (!next.starts_with(separator)) return std::nullopt;
    next = trimLeft(next.substr(1));
    if (next.empty() || !isDigitAscii(next.front())) return std::nullopt;
    m_rest = next;
    const Number number = takeNumber();
    if (number.digits > 2) return std::nullopt;
    return number;
  }

  void takeFraction() noexcept {
    if (m_rest.size() < 2 || (m_rest[0] != '.' && m_rest[0] != ',') || !isDigitAscii(m_rest[1])) return;
    m_rest.remove_prefix(1);
    int weight = 100;
    for (; !m_rest.empty() && isDigitAscii(m_rest.front()); m_rest.remove_prefix(1), weight /= 10)
      m_milliseconds += weight * (m_rest.front() - '0');
  }

  // ISO 8601 without separators: 20021213T235959.
  bool takeCompactDate(Number number) noexcept {
    if (m_numberCount != 0 || m_month || m_rest.empty() || toUpperAscii(m_rest.front()) != 'T') return false;
    addDateNumber({number.value / 10'000, 4});
    addDateNumber({number.value / 100 % 100, 2});
    addDateNumber({number.value % 100, 2});
    m_compact = true;
    m_rest.remove_prefix(1);
    return true;
  }

  bool isCompactTime(Number number) const noexcept {
    return m_compact && !m_haveTime && (number.digits == 6 || number.digits == 4);
  }

  bool takeCompactTime(Number number) noexcept {
    const int clock = number.digits == 6 ? number.value : number.value * 100;
    takeFraction();
    m_hour = clock / 10'000;
    m_minute = clock / 100 % 100;
    m_second = clock % 100;
    m_haveTime = true;
    return m_hour <= 23 && m_minute <= 59 && m_second <= 60;
  }

  void addDateNumber(Number number) noexcept {
    if (m_numberCount < std::size(m_numbers)) m_numbers[m_numberCount++] = number;
  }

  void readWord() noexcept {
    std::size_t length = 1;
    while (length < m_rest.size() && isAlphaAscii(m_rest[length])) ++length;
    const std::string_view word = m_rest.substr(0, length);
    m_rest.remove_prefix(length);

    // Foreign weekdays may look like months, such as French "mar." (mardi); the month comes after them.
    const int month = m_month && m_haveTime ? 0 : monthOfName(word);
    if (month) {
      m_month = month;
      if (m_rest.starts_with('-')) m_rest.remove_prefix(1);  // "13-Dec-02"
      return;
    }
    if (!m_haveTime) return;
    if (equalsNoCase(word, "AM") || equalsNoCase(word, "PM")) {
      m_is12Hour = true;
      m_isPm = equalsNoCase(word, "PM");
    } else if (const auto minutes = minutesOfZone(word); minutes && !m_haveZone) {
      m_haveZone = true;
      m_zoneSeconds = *minutes * 60;
    }
  }

  // "+0200", "+02:00", "+2".
  void readOffset() noexcept {
    const int sign = m_rest.front() == '-' ? -1 : 1;
    m_rest.remove_prefix(1);
    Number number = takeNumber();
    if (number.digits <= 2 && m_rest.size() > 2 && m_rest[0] == ':' && isDigitAscii(m_rest[1])) {
      m_rest.remove_prefix(1);
      const Number minutes = takeNumber();
      number = {number.value * 100 + minutes.value, 4};
    }
    setOffset(number, sign);
  }

  void setOffset(Number number, int sign) noexcept {
    if (m_haveOffset || number.digits > 4) return;
    const int hours = number.digits <= 2 ? number.value : number.value / 100;
    const int minutes = number.digits <= 2 ? 0 : number.value % 100;
    if (minutes > 59) return;
    m_haveOffset = true;
    m_offsetSeconds = sign * (hours * 3600 + minutes * 60);
  }

  void skipComment() noexcept {
    int depth = 0;
    for (std::size_t i = 0; i < m_rest.size(); ++i) {
      if (m_rest[i] == '\\') {
        ++i;
      } else if (m_rest[i] == '(') {
        ++depth;
      } else if (m_rest[i] == ')' && --depth == 0) {
        m_rest.remove_prefix(i + 1);
        return;
      }
    }
    m_rest = {};  // unterminated: the rest is comment
  }

  Number takeNumber() noexcept {
    Number number;
    for (; !m_rest.empty() && isDigitAscii(m_rest.front()); m_rest.remove_prefix(1), ++number.digits)
      if (number.digits < 9) number.value = number.value * 10 + (m_rest.front() - '0');
    return number;
  }

  std::optional<SorvikSysTime> result() const noexcept {
    Number year, day;
    int month = m_month;
    if (month && m_numberCount >= 2) {
      const bool yearFirst = m_numbers[0].digits > 2;
      year = m_numbers[yearFirst ? 0 : 1];
      day = m_numbers[yearFirst ? 1 : 0];
    } else if (!month && m_numberCount == 3 && m_numbers[0].digits == 4) {
      year = m_numbers[0];
      month = m_numbers[1].value;
      day = m_numbers[2];
    } else {
      return std::nullopt;  // "03/04/05" is ambiguous
    }
    if (year.digits < 2 || year.digits > 4 || day.digits > 2 || month < 1 || month > 12) return std::nullopt;
    return inGmt(fullYear(year.value, year.digits), month, day.value);
  }

  std::optional<SorvikSysTime> inGmt(int year, int month, int day) const noexcept {
    if (day < 1 || day > daysInMonth(year, month)) return std::nullopt;
    const std::int64_t local =
        daysFromDate(year, month, day) * kSecondsPerDay + secondOfDay(hourOfDay(), m_minute, m_second);
    const std::int64_t gmt = local - std::int64_t{offsetMinutes()} * 60;
    if (gmt < kFirstSecond || gmt > kLastSecond) return std::nullopt;

    SorvikSysTime time;
    time.fromUnixTime(gmt);
    time.m_milliseconds = static_cast<std::uint16_t>(m_milliseconds);
    return time;
  }

  int hourOfDay() const noexcept {
    if (!m_is12Hour || m_hour > 12) return m_hour;
    return m_hour % 12 + (m_isPm ? 12 : 0);
  }

  std::string_view m_rest;
  Number m_numbers[3];
  std::size_t m_numberCount = 0;
  int m_month = 0;
  int m_hour = 0, m_minute = 0, m_second = 0, m_milliseconds = 0;
  int m_zoneSeconds = 0, m_offsetSeconds = 0;
  bool m_haveTime = false, m_haveZone = false, m_haveOffset = false;
  bool m_is12Hour = false, m_isPm = false;
  bool m_compact = false;
};

}  // namespace

void SorvikSysTime::getCurrentGmt() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
  const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now - seconds);
  fromUnixTime(seconds.count());
  m_milliseconds = static_cast<std::uint16_t>(rest.count());
}

std::int64_t SorvikSysTime::toUnixTime() const noexcept {
  const int month = std::clamp<int>(m_month, 1, 12);
  return daysFromDate(m_year, month, m_day) * kSecondsPerDay + secondOfDay(m_hour, m_minute, m_second);
}

void SorvikSysTime::fromUnixTime(std::int64_t seconds) noexcept {
  seconds = std::clamp(seconds, kFirstSecond, kLastSecond);
  const std::int64_t days = (seconds - kFirstSecond) / kSecondsPerDay + kFirstSecond / kSecondsPerDay;
  const int clock = static_cast<int>(seconds - days * kSecondsPerDay);

  const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{days}}};
  m_year = static_cast<std::uint16_t>(static_cast<int>(date.year()));
  m_month = static_cast<std::uint16_t>(static_cast<unsigned>(date.month()));
  m_day = static_cast<std::uint16_t>(static_cast<unsigned>(date.day()));
  m_hour = static_cast<std::uint16_t>(clock / 3600);
  m_minute = static_cast<std::uint16_t>(clock / 60 % 60);
  m_second = static_cast<std::uint16_t>(clock % 60);
  m_milliseconds = 0;
  m_dayOfWeek = static_cast<std::uint16_t>(((days + 4) % 7 + 7) % 7);  // 1970-01-01 was a Thursday
  m_isUtc = true;
}

bool SorvikSysTime::operator==(const SorvikSysTime& other) const noexcept {
  return m_year == other.m_year && m_month == other.m_month && m_day == other.m_day &&
         m_hour == other.m_hour && m_minute == other.m_minute && m_second == other.m_second &&
         m_milliseconds == other.m_milliseconds && m_isUtc == other.m_isUtc;
}

bool _svDateParser::parseRFC822Date(const char* text, SorvikSysTime& time) {
  return parse(viewOf(text), time);
}

bool _svDateParser::parse(std::string_view text, SorvikSysTime& time) {
  int unused = 0;
  return parse(text, time, unused);
}

bool _svDateParser::parse(std::string_view text, SorvikSysTime& time, int& offsetMinutes) {
  DateReader reader(text);
  const std::optional<SorvikSysTime> read = reader.read();
  if (!read) return false;
  time = *read;
  offsetMinutes = reader.offsetMinutes();
  return true;
}

void _svDateParser::generateCurrentDateRFC822(StringBuffer& out) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (!localtime_r(&now, &local)) return;
  const std::int64_t localTime =
      daysFromDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday) * kSecondsPerDay +
      secondOfDay(local.tm_hour, local.tm_min, local.tm_sec);
  generateDateRFC822(now, static_cast<int>((localTime - now) / 60), out);
}

void _svDateParser::generateDateRFC822(std::int64_t unixTime, int offsetMinutes, StringBuffer& out) {
  const int offset = std::clamp(offsetMinutes, -kMaxOffset, kMaxOffset), distance = std::abs(offset);
  SorvikSysTime local;
  local.fromUnixTime(std::clamp(unixTime, kFirstSecond, kLastSecond) + std::int64_t{offset} * 60);
  const std::string_view month = kMonths[local.m_month - 1];
  char date[128];
  const int length = std::snprintf(date, sizeof date, "%s, %02d %c%c%c %04d %02d:%02d:%02d %c%02d%02d",
                                   kWeekdays[local.m_dayOfWeek].data(), local.m_day, toUpperAscii(month[0]),
                                   month[1], month[2], local.m_year, local.m_hour, local.m_minute,
                                   local.m_second, offset < 0 ? '-' : '+', distance / 60, distance % 60);
  out.append(std::string_view(date, static_cast<std::size_t>(length)));
}

}  // namespace mailtree
