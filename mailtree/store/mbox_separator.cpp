#include "mailtree/store/mbox_separator.h"

#include <algorithm>
#include <array>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree {
namespace {

constexpr std::string_view kFrom = "From ";
constexpr std::size_t kLongestLine = 1000;
constexpr std::size_t kLeastIdDigits = 8;
constexpr std::array<std::string_view, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// The words of a line; no separator has more than these.
struct Words {
  std::array<std::string_view, 16> word;
  std::size_t size = 0;
};

/// The end of the word at the beginning of a text. A part in quotes may have blanks: "a b"@example.org.
std::size_t endOfWord(std::string_view text) noexcept {
  std::size_t at = 0;
  while (at < text.size() && !isSpaceAscii(text[at]) && text[at] != '"') ++at;
  if (at == text.size() || text[at] != '"') return at;
  const std::size_t plain = at;
  bool isQuoted = false;
  for (; at < text.size() && (isQuoted || !isSpaceAscii(text[at])); ++at) isQuoted ^= text[at] == '"';
  return isQuoted ? std::min(text.find_first_of(" \t\r", plain), text.size()) : at;
}

Words wordsOf(std::string_view text) {
  Words words;
  for (text = trim(text); !text.empty() && words.size < words.word.size(); text = trimLeft(text)) {
    const std::size_t size = endOfWord(text);
    words.word[words.size++] = text.substr(0, size);
    text.remove_prefix(size);
  }
  return words;
}

std::string_view at(const Words& words, std::size_t index) noexcept {
  return index < words.size ? words.word[index] : std::string_view();
}

template <std::size_t kSize>
std::size_t indexIn(const std::array<std::string_view, kSize>& names, std::string_view word) noexcept {
  if (word.size() != 3) return kSize;
  const auto same = [word](std::string_view name) {
    return toLowerAscii(word[0]) == toLowerAscii(name[0]) && equalsNoCase(name, word);
  };
  return static_cast<std::size_t>(std::ranges::find_if(names, same) - names.begin());
}

bool isDay(std::string_view word) noexcept { return indexIn(kDays, word) < kDays.size(); }
bool isMonth(std::string_view word) noexcept { return indexIn(kMonths, word) < kMonths.size(); }

/// The value of digits only; -1 for anything else.
int numberOf(std::string_view word, std::size_t least, std::size_t most) noexcept {
  if (word.size() < least || word.size() > most || !std::ranges::all_of(word, isDigitAscii)) return -1;
  int number = 0;
  for (const char c : word) number = 10 * number + (c - '0');
  return number;
}

bool isDayOfMonth(std::string_view word) noexcept {
  const int day = numberOf(word, 1, 2);
  return day >= 1 && day <= 31;
}

bool isYear(std::string_view word) noexcept { return numberOf(word, 4, 4) >= 1900; }

/// Seconds of the day of "8:30" or "08:30:00"; -1 for anything else.
int secondsOf(std::string_view word) noexcept {
  const std::size_t colon = word.find(':');
  if (colon == word.npos) return -1;
  const int hour = numberOf(word.substr(0, colon), 1, 2);
  const std::string_view rest = word.substr(colon + 1);
  const bool hasSeconds = rest.size() == 5 && rest[2] == ':';
  const int minute = numberOf(hasSeconds ? rest.substr(0, 2) : rest, 2, 2);
  const int second = hasSeconds ? numberOf(rest.substr(3), 2, 2) : 0;
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60) return -1;
  return (hour * 60 + minute) * 60 + second;
}

bool isNumericZone(std::string_view word) noexcept {
  return word.size() == 5 && (word[0] == '+' || word[0] == '-') && numberOf(word.substr(1), 4, 4) >= 0;
}

bool isZone(std::string_view word) noexcept {
  return isNumericZone(word) ||
         (word.size() >= 2 && word.size() <= 5 && std::ranges::all_of(word, isUpperAscii));
}

/// Minutes ahead of GMT.
int zoneMinutes(std::string_view numeric) noexcept {
  const int number = numberOf(numeric.substr(1), 4, 4);
  const int minutes = number / 100 * 60 + number % 100;
  return numeric[0] == '-' ? -minutes : minutes;
}

std::optional<std::chrono::sys_seconds> parsedDate(std::string_view text) {
  SorvikSysTime time;
  if (!_svDateParser::parse(text, time)) return {};
  return std::chrono::sys_seconds(std::chrono::seconds(time.toUnixTime()));
}

/// The place of a date in asctime order among the words of a line.
struct DateWords {
  std::string_view weekday, day, time, year, zone;
  std::size_t month = 0;
  bool isZoneLast = false;
  std::size_t end = 0;  ///< After its last word.
};

/// "Sat Nov 21 08:30:00 CET 2026 +0100" at `from`.
std::optional<DateWords> dateAt(const Words& words, std::size_t from) noexcept {
  DateWords date;
  date.weekday = at(words, from);
  date.month = indexIn(kMonths, at(words, from + 1));
  date.day = at(words, from + 2);
  date.time = at(words, from + 3);
  const bool begins = isDay(date.weekday) && date.month < kMonths.size() && isDayOfMonth(date.day) &&
                      secondsOf(date.time) >= 0;
  if (!begins) return {};
  std::size_t next = from + 4;
  for (int zones = 0; zones < 2 && isZone(at(words, next)); ++zones) date.zone = at(words, next++);
  date.year = at(words, next);
  if (!isYear(date.year)) return {};
  if (isZone(at(words, ++next))) {
    date.zone = at(words, next++);
    date.isZoneLast = true;
  }
  date.end = next;
  return date;
}

/// The line from one of its words on.
std::string_view fromWord(std::string_view line, std::string_view word) noexcept {
  return line.substr(static_cast<std::size_t>(word.data() - line.data()));
}

std::optional<std::chrono::sys_seconds> valueOf(const DateWords& date, std::string_view line) {
  using std::chrono::day, std::chrono::minutes, std::chrono::month, std::chrono::seconds,
      std::chrono::sys_days, std::chrono::year, std::chrono::year_month_day;
  if (!date.zone.empty() && !isNumericZone(date.zone)) return parsedDate(fromWord(line, date.weekday));
  const year_month_day days(year(numberOf(date.year, 4, 4)), month(static_cast<unsigned>(date.month) + 1),
                            day(static_cast<unsigned>(numberOf(date.day, 1, 2))));
  if (!days.ok()) return {};
  const int ahead = date.zone.empty() ? 0 : zoneMinutes(date.zone);
  return sys_days(days) + seconds(secondsOf(date.time)) - minutes(ahead);
}

bool endsAfter(const Words& words, std::size_t end) noexcept {
  const bool isRelayed = at(words, end) == "remote" && at(words, end + 1) == "from";  // UUCP
  return words.size == end + (isRelayed ? 3 : 0);
}

std::string_view senderIn(const Words& words, std::size_t count) noexcept {
  const std::string_view first = words.word[0];
  if (count == 0 || first == "-") return {};
  return {first.data(), static_cast<std::size_t>(words.word[count - 1].end() - first.data())};
}

Separator separatorOf(const Words& words, std::size_t senderWords, const DateWords& date,
                      std::string_view line) {
  Separator separator{.sender = senderIn(words, senderWords), .date = valueOf(date, line)};
  separator.addsLineEnd = date.isZoneLast && date.zone == "-0000";
  separator.isQuoted = separator.addsLineEnd || (date.isZoneLast && date.zone == "+0000");
  return separator;
}

/// A date after no word, one word, or an address that an archive made unreadable: "ann at example.org".
std::optional<Separator> readCertain(const Words& words, std::string_view line) {
  for (const std::size_t senderWords : {1, 0, 3}) {
    if (senderWords == 3 && at(words, 1) != "at") continue;
    const std::optional<DateWords> date = dateAt(words, senderWords);
    if (date && endsAfter(words, date->end)) return separatorOf(words, senderWords, *date, line);
  }
  return {};
}

/// "Sat, 21 Nov 2026 08:30:00 +0100" after a sender.
bool isRfcDate(const Words& words, std::size_t from) noexcept {
  std::string_view day = at(words, from);
  if (day.ends_with(',')) day.remove_suffix(1);
  if (isDay(day)) ++from;
  const std::string_view year = at(words, from + 2);
  return isDayOfMonth(at(words, from)) && isMonth(at(words, from + 1)) &&
         (isYear(year) || numberOf(year, 2, 2) >= 0) && secondsOf(at(words, from + 3)) >= 0;
}

/// The number of a message in an archive, or an address, with nothing after it.
bool isSenderAlone(const Words& words) noexcept {
  if (words.size != 1) return false;
  const std::string_view word = words.word[0];
  const std::size_t sign = word.find('@');
  if (sign != word.npos) return sign > 0 && sign + 1 < word.size();
  const std::string_view digits = word.substr(word.starts_with('-') ? 1 : 0);
  return digits.size() >= kLeastIdDigits && std::ranges::all_of(digits, isDigitAscii);
}

std::optional<Separator> readLikely(const Words& words, std::string_view line) {
  for (std::size_t from = 0; from < words.size; ++from) {
    if (const std::optional<DateWords> date = dateAt(words, from))
      return separatorOf(words, from, *date, line);
    if (from == 1 && isRfcDate(words, from))
      return Separator{.sender = senderIn(words, from), .date = parsedDate(fromWord(line, words.word[1]))};
  }
  if (isSenderAlone(words)) return Separator{.sender = senderIn(words, 1)};
  return {};
}

/// Whether the text begins with a header field, or with the separator of a relay.
bool beginsWithField(std::string_view text) noexcept {
  if (text.starts_with(">From ")) return true;
  const auto isNamed = [](char c) { return c > ' ' && c < 0x7F && c != ':'; };
  const auto end = std::ranges::find_if_not(text, isNamed);
  return end != text.begin() && end != text.end() && *end == ':';
}

}  // namespace

bool endsWithEmptyLine(std::string_view text) noexcept {
  if (text.empty() || text == "\n" || text == "\r\n") return true;
  return text.ends_with("\n\n") || text.ends_with("\n\r\n");
}

std::optional<Separator> readSeparator(std::string_view text, bool isAfterEmptyLine) {
  if (!text.starts_with(kFrom)) return {};
  text = text.substr(0, kJudgedBytes);  // no more, so that the verdict does not depend on what was read
  const std::size_t size = std::min(text.substr(0, kLongestLine).find('\n'), text.size());
  if (size > kLongestLine) return {};
  const std::string_view line = text.substr(0, size);
  // Most lines of text that begin like this end here: dates have a colon, and what has no date is one word.
  const std::string_view rest = trim(line.substr(kFrom.size()));
  if (rest.find(':') == rest.npos && rest.find(' ') != rest.npos) return {};
  const std::string_view after = text.substr(std::min(size + 1, text.size()));
  const Words words = wordsOf(rest);
  std::optional<Separator> separator = readCertain(words, line);
  if (!separator && isAfterEmptyLine && beginsWithField(after)) separator = readLikely(words, line);
  if (separator) separator->size = text.size() - after.size();
  return separator;
}

Separator readFirstLine(std::string_view text) {
  if (!text.starts_with(kFrom) || trimLeft(text.substr(kFrom.size())).starts_with(':')) return {};
  if (std::optional<Separator> separator = readSeparator(text, /*isAfterEmptyLine=*/true)) return *separator;
  const std::size_t size = text.substr(0, kJudgedBytes).find('\n');
  if (size != text.npos) return {.size = size + 1};
  return {.size = text.size() < kJudgedBytes ? text.size() : 0};
}

}  // namespace mailtree
