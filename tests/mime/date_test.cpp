#include "mailtree/mime/header/Date.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace mailtree {
namespace {

std::string shown(const SorvikSysTime& time) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.m_year, time.m_month, time.m_day,
                time.m_hour, time.m_minute, time.m_second);
  return text;
}

// The date in GMT, or "none".
std::string parsed(const char* text) {
  SorvikSysTime time;
  return _svDateParser::parseRFC822Date(text, time) ? shown(time) : "none";
}

TEST(DateReading, TakesEveryFormMetInMail) {
  const struct {
    const char* text;
    const char* gmt;
  } rows[] = {
      // The standard's own forms.
      {"Fri, 13 Dec 2002 23:59:59 +0100", "2002-12-13 22:59:59"},
      {"Fri, 13 Dec 2002 23:59:59 -0330", "2002-12-14 03:29:59"},
      {"13 Dec 2002 23:59 -0000", "2002-12-13 23:59:00"},
      {"Fri,13 Dec 2002 23 : 59 : 59 +0000", "2002-12-13 23:59:59"},
      {"1 Jan 2000 00:30:00 +0100", "1999-12-31 23:30:00"},
      {"29 Feb 2000 12:00:00 GMT", "2000-02-29 12:00:00"},
      {"Sat, 31 Dec 2016 23:59:60 +0000", "2017-01-01 00:00:00"},
      // Zones by name, by letter, unknown, and beside an offset, which wins.
      {"13 Dec 2002 12:00:00 EST", "2002-12-13 17:00:00"},
      {"13 Dec 2002 12:00:00 pdt", "2002-12-13 19:00:00"},
      {"13 Dec 2002 12:00:00 CET", "2002-12-13 11:00:00"},
      {"13 Dec 2002 12:00:00 BST", "2002-12-13 11:00:00"},
      {"13 Dec 2002 12:00:00 JST", "2002-12-13 03:00:00"},
      {"13 Dec 2002 12:00:00 UT", "2002-12-13 12:00:00"},
      {"13 Dec 2002 12:00:00Z", "2002-12-13 12:00:00"},
      {"13 Dec 2002 12:00:00 A", "2002-12-13 12:00:00"},
      {"13 Dec 2002 12:00:00 XYZT", "2002-12-13 12:00:00"},
      {"13 Dec 2002 12:00:00 GMT+0200", "2002-12-13 10:00:00"},
      {"13 Dec 2002 12:00:00 +0200 (CEST)", "2002-12-13 10:00:00"},
      {"13 Dec 2002 12:00:00 (EDT) -0400", "2002-12-13 16:00:00"},
      {"13 Dec 2002 12:00:00 -0500 PST", "2002-12-13 17:00:00"},
      {"13 Dec 2002 12:00:00 PST -0500", "2002-12-13 17:00:00"},
      {"13 Dec 2002 12:00:00 +02:00", "2002-12-13 10:00:00"},
      {"13 Dec 2002 12:00:00 UTC+5:30", "2002-12-13 06:30:00"},
      {"13 Dec 2002 12:00:00 +2", "2002-12-13 10:00:00"},
      {"13 Dec 2002 12:00:00 0200", "2002-12-13 10:00:00"},
      {"13 Dec 2002 12:00:00 +0275", "2002-12-13 12:00:00"},  // no such minute
      {"13 Dec 2002 12:00:00", "2002-12-13 12:00:00"},
      // Years of two and three digits (RFC 5322, 4.3).
      {"13 Dec 02 12:00:00 GMT", "2002-12-13 12:00:00"},
      {"13 Dec 49 12:00:00 GMT", "2049-12-13 12:00:00"},
      {"13 Dec 50 12:00:00 GMT", "1950-12-13 12:00:00"},
      {"13 Dec 102 12:00:00 GMT", "2002-12-13 12:00:00"},
      {"13 Dec 9999 12:00:00 GMT", "9999-12-13 12:00:00"},
      // Order, separators, spelling.
      {"Fri Dec 13 23:59:59 2002", "2002-12-13 23:59:59"},
      {"Fri Dec  3 23:59:59 EST 2002", "2002-12-04 04:59:59"},
      {"Fri Dec 13 23:59:59 -0500 2002", "2002-12-14 04:59:59"},
      {"Fri Dec 13 23:59:59 2002 -0500", "2002-12-14 04:59:59"},
      {"13-Dec-02 23:59:59", "2002-12-13 23:59:59"},
      {"23:59:59 13-Dec-2002", "2002-12-13 23:59:59"},
      {"23:59:59 2002-12-13 -0500", "2002-12-14 04:59:59"},
      {"2002 Dec 13 23:59:59 GMT", "2002-12-13 23:59:59"},
      {"FRIDAY, 13 DECEMBER 2002 23:59", "2002-12-13 23:59:00"},
      {"fri,, 13. sept. 2002, 1:02:03", "2002-09-13 01:02:03"},
      {"mar, 13 Dec 2002 12:00:00", "2002-12-13 12:00:00"},  // a weekday elsewhere
      {"Fri (comment (nested \\) )), 13 (x) Dec 2002 12:00 (unclosed", "2002-12-13 12:00:00"},
      {"13 Dec 2002 12.34.56 +0000", "2002-12-13 12:34:56"},
      {"13 Dec 2002", "2002-12-13 00:00:00"},
      // Half days.
      {"13 Dec 2002 12:29:13 AM", "2002-12-13 00:29:13"},
      {"13 Dec 2002 12:29 pm", "2002-12-13 12:29:00"},
      {"13 Dec 2002 1:29PM -0500", "2002-12-13 18:29:00"},
      {"13 Dec 2002 23:29 PM", "2002-12-13 23:29:00"},
      // ISO 8601.
      {"2002-12-13T23:59:59Z", "2002-12-13 23:59:59"},
      {"2002-12-13T23:59:59.123456+01:00", "2002-12-13 22:59:59"},
      {"2002-12-13 23:59:59", "2002-12-13 23:59:59"},
      {"2002-12-13t23:59", "2002-12-13 23:59:00"},
      {"2002-12-13", "2002-12-13 00:00:00"},
      {"20021213T235959Z", "2002-12-13 23:59:59"},
      {"20021213T2359-0500", "2002-12-14 04:59:00"},
      {"2002/12/13 23:59:59", "2002-12-13 23:59:59"},
      // No dates, or none that could be told.
      {"", "none"},
      {nullptr, "none"},
      {"Whenever", "none"},
      {"Thu Jan 01 00:00:10 +0000", "none"},
      {"29 Feb 1900 12:00:00 GMT", "none"},
      {"31 Apr 2002 12:00:00 GMT", "none"},
      {"0 Dec 2002 12:00:00 GMT", "none"},
      {"13 Dec 2002 24:00:00 GMT", "none"},
      {"13 Dec 2002 12:60:00 GMT", "none"},
      {"13 Dec 2002 12:00:61 GMT", "none"},
      {"13 Dec 2002 123:00:00 GMT", "none"},
      {"13 Dec 20021 12:00:00 GMT", "none"},
      {"13 Dec 4294969298 12:00:00 GMT", "none"},
      {"2002-13-13T12:00:00Z", "none"},
      {"03/04/05 12:00", "none"},
      {"31 Dec 9999 23:59:59 -0001", "none"},
      {"12:", "none"},
  };
  for (const auto& row : rows) EXPECT_EQ(parsed(row.text), row.gmt) << (row.text ? row.text : "(null)");
}

TEST(DateReading, FillsEveryField) {
  SorvikSysTime time;
  time.m_isUtc = false;
  ASSERT_TRUE(_svDateParser::parse("2002-12-13T23:59:59.12+02:00", time));
  EXPECT_EQ(time.m_milliseconds, 120);
  EXPECT_EQ(time.m_dayOfWeek, 5);
  EXPECT_TRUE(time.m_isUtc);
}

TEST(DateReading, LeavesTheTimeAloneOnFailure) {
  SorvikSysTime time, before;
  time.fromUnixTime(1'000'000'000);
  before.copyFrom(time);
  EXPECT_FALSE(_svDateParser::parse("31 Feb 2002 12:00:00 GMT", time));
  EXPECT_EQ(time, before);
}

TEST(DateReading, EndsSoonOnHostileText) {
  for (const char c : {'(', ')', ':', '+', '-', '9', 'a', ' '}) {
    SorvikSysTime time;
    _svDateParser::parse(std::string(3'000'000, c), time);
  }
}

TEST(UnixTime, AgreesWithTheCalendarBothWays) {
  const struct {
    std::int64_t seconds;
    const char* date;
    int dayOfWeek;
  } rows[] = {
      {0, "1970-01-01 00:00:00", 4},
      {-1, "1969-12-31 23:59:59", 3},
      {951'782'400, "2000-02-29 00:00:00", 2},
      {4'107'542'400, "2100-03-01 00:00:00", 1},
      {253'402'300'799, "9999-12-31 23:59:59", 5},
      {-62'135'596'800, "0001-01-01 00:00:00", 1},
  };
  for (const auto& row : rows) {
    SorvikSysTime time;
    time.fromUnixTime(row.seconds);
    EXPECT_EQ(shown(time), row.date);
    EXPECT_EQ(time.m_dayOfWeek, row.dayOfWeek) << row.date;
    EXPECT_EQ(time.toUnixTime(), row.seconds) << row.date;
  }
  SorvikSysTime time;
  time.fromUnixTime(std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(shown(time), "9999-12-31 23:59:59");
  time.fromUnixTime(std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(shown(time), "0001-01-01 00:00:00");
}

TEST(UnixTime, AgreesWithTheCLibraryOnEveryDayOfFourHundredYears) {
  for (std::int64_t day = -80'000; day < 66'097; ++day) {
    const auto seconds = static_cast<std::time_t>(day * 86'400 + 43'200);
    std::tm expected{};
    gmtime_r(&seconds, &expected);
    SorvikSysTime time;
    time.fromUnixTime(seconds);
    ASSERT_TRUE(time.m_year == expected.tm_year + 1900 && time.m_month == expected.tm_mon + 1 &&
                time.m_day == expected.tm_mday && time.m_dayOfWeek == expected.tm_wday)
        << shown(time);
  }
}

TEST(DateWriting, CarriesTheHostsZone) {
  const char* const before = std::getenv("TZ");
  const std::string saved = before ? before : "";
  const struct {
    const char* zone;
    const char* offset;
  } rows[] = {{"XXX-5:30", " +0530"}, {"XXX+3:30", " -0330"}, {"UTC0", " +0000"}};
  for (const auto& row : rows) {
    setenv("TZ", row.zone, 1);
    tzset();
    StringBuffer text;
    _svDateParser::generateCurrentDateRFC822(text);
    EXPECT_TRUE(text.endsWith(row.offset)) << text.getString();

    SorvikSysTime written, now;
    ASSERT_TRUE(_svDateParser::parseRFC822Date(text.getString(), written)) << text.getString();
    now.getCurrentGmt();
    EXPECT_LE(std::llabs(now.toUnixTime() - written.toUnixTime()), 5) << text.getString();
  }
  before ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace mailtree
