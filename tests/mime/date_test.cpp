#include "mailtree/mime/header/Date.h"

#include <cstdlib>
#include <limits>

#include "tests/mime/tables.h"

namespace mailtree {
namespace {

std::string shown(const SorvikSysTime& time) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.m_year, time.m_month, time.m_day,
                time.m_hour, time.m_minute, time.m_second);
  return text;
}

// The date in GMT, or "none".
std::string parsed(const std::string& text) {
  SorvikSysTime time;
  return _svDateParser::parseRFC822Date(text.c_str(), time) ? shown(time) : "none";
}

TEST(DateReading, TakesEveryFormMetInMail) {
  const Row zones[] = {
      {"EST", "17:00"},         {"pdt", "19:00"},       {"CET", "11:00"},       {"BST", "11:00"},
      {"JST", "03:00"},         {"UT", "12:00"},        {"Z", "12:00"},         {"A", "12:00"},
      {"XYZT", "12:00"},        {"GMT+0200", "10:00"},  {"UTC+5:30", "06:30"},  {"+0200 (CEST)", "10:00"},
      {"(EDT) -0400", "16:00"}, {"-0500 PST", "17:00"}, {"PST -0500", "17:00"}, {"+02:00", "10:00"},
      {"+2", "10:00"},          {"0200", "10:00"},      {"+0275", "12:00"},     {"", "12:00"},
      {"-0000", "12:00"},       {"AM", "00:00"},        {"pm", "12:00"}};
  for (const auto& [zone, time] : zones)
    EXPECT_EQ(parsed("13 Dec 2002 12:00:00 " + zone), "2002-12-13 " + time + ":00") << zone;
  // Years of two and three digits (RFC 5322, 4.3).
  const Row years[] = {{"02", "2002"}, {"49", "2049"}, {"50", "1950"}, {"102", "2002"}, {"9999", "9999"}};
  for (const auto& [year, full] : years)
    EXPECT_EQ(parsed("13 Dec " + year + " 12:00:00 GMT"), full + "-12-13 12:00:00") << year;
  const Row rows[] = {
      {"29 Feb 2000 12:00:00 GMT", "2000-02-29 12:00:00"},   {"13 Dec 2002", "2002-12-13 00:00:00"},
      {"23:59:59 13-Dec-2002", "2002-12-13 23:59:59"},       {"13 Dec 2002 23:29 PM", "2002-12-13 23:29:00"},
      {"23:59:59 2002-12-13 -0500", "2002-12-14 04:59:59"},  {"2002-12-13t23:59", "2002-12-13 23:59:00"},
      {"2002 Dec 13 23:59:59 GMT", "2002-12-13 23:59:59"},   {"2002-12-13", "2002-12-13 00:00:00"},
      {"mar, 13 Dec 2002 12:00:00", "2002-12-13 12:00:00"},  {"20021213T235959Z", "2002-12-13 23:59:59"},
      {"13 Dec 2002 12.34.56 +0000", "2002-12-13 12:34:56"}, {"20021213T2359-0500", "2002-12-14 04:59:00"},
      {"13 Dec 2002 1:29PM -0500", "2002-12-13 18:29:00"},   {"2002/12/13 23:59:59", "2002-12-13 23:59:59"}};
  const Row more[] = {{"Fri, 13 Dec 2002 23:59:59 -0330", "2002-12-14 03:29:59"},
                      {"Fri,13 Dec 2002 23 : 59 : 59 +0000", "2002-12-13 23:59:59"},
                      {"Sat, 31 Dec 2016 23:59:60 +0000", "2017-01-01 00:00:00"},
                      {"Fri Dec  3 23:59:59 EST 2002", "2002-12-04 04:59:59"},
                      {"Fri Dec 13 23:59:59 2002 -0500", "2002-12-14 04:59:59"},
                      {"FRIDAY, 13 DECEMBER 2002 23:59", "2002-12-13 23:59:00"},
                      {"fri,, 13. sept. 2002, 1:02:03", "2002-09-13 01:02:03"},
                      {"Fri (comment (nested \\) )), 13 (x) Dec 2002 12:00 (unclosed", "2002-12-13 12:00:00"},
                      {"2002-12-13T23:59:59.123456+01:00", "2002-12-13 22:59:59"}};
  expectEach(parsed, both(rows, more));
}

// A blank before it makes a date be read by tokens.
TEST(DateReading, the_usual_form_means_what_its_tokens_mean) {
  for (const char* day : {"Fri, 13", "1", "Mon, 01", "31", "Mar, 3", "0", "32"})
    for (const char* month : {"Dec", "dec", "Feb", "May", "Mai", "Xyz"})
      for (const char* year : {"2002", "0001", "0000", "9999"})
        for (const char* time : {"23:59:60", "00:00:00", "24:00:00", "12:60:00", "12:00:61"})
          for (const char* zone :
               {"+0000", "-0330", "+9959", "+0275", "+0100 (CET)", "-0100 (a (b", "+0100 PM"}) {
            const std::string date = std::string(day) + " " + month + " " + year + " " + time + " " + zone;
            EXPECT_EQ(parsed(date), parsed(" " + date)) << date;
          }
}

TEST(DateReading, RefusesWhatIsNoDateOrCouldBeSeveral) {
  for (const char* text :
       {"", "Whenever", "12:", "Thu Jan 01 00:00:10 +0000", "29 Feb 1900 12:00:00 GMT",
        "31 Apr 2002 12:00:00", "0 Dec 2002 12:00:00 GMT", "13 Dec 2002 24:00:00 GMT",
        "13 Dec 2002 12:60:00 GMT", "13 Dec 2002 12:00:61 GMT", "13 Dec 2002 123:00:00 GMT",
        "13 Dec 20021 12:00:00 GMT", "13 Dec 4294969298 12:00:00 GMT", "2002-13-13T12:00:00Z",
        "03/04/05 12:00", "31 Dec 9999 23:59:59 -0001"})
    EXPECT_EQ(parsed(text), "none") << text;
  SorvikSysTime time, before;
  time.fromUnixTime(1'000'000'000);
  before.copyFrom(time);
  EXPECT_FALSE(_svDateParser::parse("31 Feb 2002 12:00:00 GMT", time));
  EXPECT_FALSE(_svDateParser::parseRFC822Date(nullptr, time));
  EXPECT_EQ(time, before) << "left alone";
  expectEndsSoon([&](const std::string& text) { _svDateParser::parse(text, time); },
                 {"(", ")", ":", "+", "-", "9", "a", " "});
}

TEST(DateReading, FillsEveryField) {
  SorvikSysTime time;
  time.m_isUtc = false;
  ASSERT_TRUE(_svDateParser::parse("2002-12-13T23:59:59.12+02:00", time));
  EXPECT_EQ(time.m_milliseconds, 120);
  EXPECT_EQ(time.m_dayOfWeek, 5);
  EXPECT_TRUE(time.m_isUtc);
}

TEST(UnixTime, AgreesWithTheCalendarBothWays) {
  const std::tuple<std::int64_t, const char*, int> rows[] = {
      {4'107'542'400, "2100-03-01 00:00:00", 1},   {0, "1970-01-01 00:00:00", 4},
      {253'402'300'799, "9999-12-31 23:59:59", 5}, {-1, "1969-12-31 23:59:59", 3},
      {-62'135'596'800, "0001-01-01 00:00:00", 1}, {951'782'400, "2000-02-29 00:00:00", 2}};
  for (const auto& [seconds, date, dayOfWeek] : rows) {
    SorvikSysTime time;
    time.fromUnixTime(seconds);
    EXPECT_EQ(shown(time), date);
    EXPECT_EQ(time.m_dayOfWeek, dayOfWeek) << date;
    EXPECT_EQ(time.toUnixTime(), seconds) << date;
  }
  SorvikSysTime first, last;
  last.fromUnixTime(std::numeric_limits<std::int64_t>::max());
  first.fromUnixTime(std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(shown(first) + " " + shown(last), "0001-01-01 00:00:00 9999-12-31 23:59:59");
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
  const Row rows[] = {{"IST-5:30", " +0530"}, {"NST+3:30", " -0330"}, {"UTC0", " +0000"}};
  for (const auto& [zone, offset] : rows) {
    setenv("TZ", zone.c_str(), 1);
    tzset();
    const std::string text = textOf(_svDateParser::generateCurrentDateRFC822);
    EXPECT_TRUE(text.ends_with(offset)) << text;
    SorvikSysTime written, now;
    ASSERT_TRUE(_svDateParser::parse(text, written)) << text;
    now.getCurrentGmt();
    EXPECT_LE(std::llabs(now.toUnixTime() - written.toUnixTime()), 5) << text;
  }
  before ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace mailtree
