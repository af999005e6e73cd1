#include "mailtree/message/expression_tests.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/charset/FoldedText.h"

namespace mailtree {
namespace {

Error badValue(std::string problem) { return {ErrorCode::badValue, std::move(problem), {}}; }

/// White space between words counts as one blank: texts are broken anywhere.
void collapseBlanks(std::string& text) {
  std::ranges::replace_if(text, isSpaceAscii, ' ');
  const auto areBlanks = [](char a, char b) { return a == ' ' && b == ' '; };
  text.erase(std::unique(text.begin(), text.end(), areBlanks), text.end());
}

/// The longest piece that is in the bytes of a field if the text is in its value.
std::string_view longestWordIn(std::string_view text) {
  std::string_view longest;
  for (std::size_t begin = 0; begin < text.size();) {
    std::size_t end = begin;
    while (end < text.size() && !isSpaceAscii(text[end]) && !is8bit(text[end])) ++end;
    if (end - begin > longest.size()) longest = text.substr(begin, end - begin);
    begin = end + 1;
  }
  return longest;
}

class WantedText {
 public:
  explicit WantedText(std::string_view text) : m_text(foldedText(text)) {
    collapseBlanks(m_text);
    m_longestWord = longestWordIn(m_text);
  }

  bool isIn(std::string_view text) const {
    std::string folded = foldedText(text);
    if (contains(m_text, " ")) collapseBlanks(folded);
    return findSubstring(folded, m_text) != std::string_view::npos;
  }

  bool isInField(LazyMessage& message, std::string_view name) const {
    if (!message.mayHaveInHeader(m_longestWord)) return false;
    const MimeHeader& fields = message.header();
    for (int i = fields.findField(name); i >= 0; i = fields.findField(name, i + 1))
      if (isIn(fields.decodedValue(i))) return true;
    return false;
  }

 private:
  std::string m_text, m_longestWord;
};

// Ranges

/// What a range begins with, and what comes after it.
struct Range {
  double begin = -std::numeric_limits<double>::infinity(), end = std::numeric_limits<double>::infinity();
  bool has(double value) const noexcept { return value >= begin && value < end; }
};

using ReadRange = std::optional<Range> (*)(std::string_view);

/// A value, or two of them with ".." between, one of which may be left out.
std::optional<Range> rangeIn(std::string_view text, ReadRange read) {
  const std::size_t dots = text.find("..");
  if (dots == std::string_view::npos) return read(text);
  const std::string_view first = text.substr(0, dots), last = text.substr(dots + 2);
  std::optional<Range> begin = first.empty() ? Range() : read(first),
                       end = last.empty() ? Range() : read(last);
  if (!begin || !end || (first.empty() && last.empty())) return std::nullopt;
  return Range{begin->begin, end->end};
}

int numberIn(std::string_view digits) {
  int number = -1;
  const auto [last, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() && last == digits.data() + digits.size() ? number : -1;
}

/// "2026", "2026-03" or "2026-03-15", in seconds.
std::optional<Range> dayRange(std::string_view text) {
  using std::chrono::day, std::chrono::days, std::chrono::month, std::chrono::months, std::chrono::sys_days,
      std::chrono::sys_seconds, std::chrono::year, std::chrono::year_month_day, std::chrono::years;
  constexpr std::size_t kYear = 4, kMonth = 7, kDay = 10;
  const bool hasMonth = text.size() >= kMonth, hasDay = text.size() == kDay;
  if (text.size() != kYear && text.size() != kMonth && !hasDay) return std::nullopt;
  if ((hasMonth && text[4] != '-') || (hasDay && text[7] != '-')) return std::nullopt;
  const auto number = [&](std::size_t at, std::size_t size) { return numberIn(text.substr(at, size)); };
  const int yearNumber = number(0, 4), monthNumber = hasMonth ? number(5, 2) : 1,
            dayNumber = hasDay ? number(8, 2) : 1;
  if (yearNumber < 0 || monthNumber < 0 || dayNumber < 0) return std::nullopt;
  const year_month_day first =
      year(yearNumber) / month(static_cast<unsigned>(monthNumber)) / day(static_cast<unsigned>(dayNumber));
  if (!first.ok()) return std::nullopt;
  const sys_days begin = first;
  const sys_days end = hasDay     ? begin + days(1)
                       : hasMonth ? sys_days(first + months(1))
                                  : sys_days(first + years(1));
  const auto secondsOf = [](sys_days day) {
    return static_cast<double>(sys_seconds(day).time_since_epoch().count());
  };
  return Range{secondsOf(begin), secondsOf(end)};
}

/// "10", "1.5M", "20 kB" without the blank.
std::optional<double> sizeIn(std::string_view text) {
  constexpr struct {
    char letter;
    double factor;
  } kUnits[] = {{'k', 1e3}, {'m', 1e6}, {'g', 1e9}};
  if (!text.empty() && toLowerAscii(text.back()) == 'b') text.remove_suffix(1);
  double factor = 1;
  for (const auto& unit : kUnits)
    if (!text.empty() && toLowerAscii(text.back()) == unit.letter) {
      factor = unit.factor;
      text.remove_suffix(1);
      break;
    }
  if (text.empty() || !isDigitAscii(text.front())) return std::nullopt;
  double number = 0;
  const auto [last, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc() || last != text.data() + text.size()) return std::nullopt;
  return std::round(number * factor);
}

std::optional<Range> exactSize(std::string_view text) {
  const std::optional<double> size = sizeIn(text);
  return size ? std::optional(Range{*size, *size + 1}) : std::nullopt;
}

std::optional<Range> sizeRange(std::string_view text) {
  constexpr struct {
    std::string_view sign;
    bool isAbove, isIncluded;
  } kSigns[] = {{">=", true, true}, {"<=", false, true}, {">", true, false}, {"<", false, false}};
  for (const auto& [sign, isAbove, isIncluded] : kSigns) {
    if (!text.starts_with(sign)) continue;
    const std::optional<double> size = sizeIn(text.substr(sign.size()));
    if (!size) return std::nullopt;
    Range range;
    (isAbove ? range.begin : range.end) = *size + (isAbove == isIncluded ? 0 : 1);
    return range;
  }
  return rangeIn(text, exactSize);
}

Result<MessageTest> dateTest(std::string_view value) {
  const std::optional<Range> range = rangeIn(value, dayRange);
  if (!range) return badValue("not a date such as 2026, 2026-03-15 or 2026-01..2026-03");
  return MessageTest{TestCost::header, [range = *range](LazyMessage& message) {
                       const std::optional<Date> date = message.date();
                       return date && range.has(static_cast<double>(date->time.time_since_epoch().count()));
                     }};
}

Result<MessageTest> sizeTest(std::string_view value) {
  const std::optional<Range> range = sizeRange(value);
  if (!range) return badValue("not a size such as >1M or 10k..20k");
  return MessageTest{TestCost::place, [range = *range](LazyMessage& message) {
                       return range.has(static_cast<double>(message.size()));
                     }};
}

// Parts

MessageTest partTest(std::function<bool(const Part&)> matches) {
  return {TestCost::structure, [matches = std::move(matches)](LazyMessage& message) {
            const Message* const whole = message.message();
            return whole && std::ranges::any_of(whole->parts(), matches);
          }};
}

Result<MessageTest> typeTest(std::string_view value) {
  const std::string wanted = lowerCase(value);
  return partTest([wanted](const Part& part) {
    const std::string type = part.type();
    if (contains(wanted, "/")) return matchesWildcard(type, wanted, /*caseSensitive=*/true);
    const std::size_t slash = std::min(type.find('/'), type.size() - 1);
    return matchesWildcard(type.substr(0, slash), wanted, true) ||
           matchesWildcard(type.substr(slash + 1), wanted, true);
  });
}

Result<MessageTest> fileTest(std::string_view value) {
  const std::string wanted = foldedText(value);
  const std::string pattern = contains(wanted, "*") ? wanted : "*" + wanted + "*";
  return partTest([pattern](const Part& part) {
    const std::string name = part.isMessage() ? part.fileName() : part.name();
    return !name.empty() && matchesWildcard(foldedText(name), pattern, /*caseSensitive=*/true);
  });
}

// Texts

MessageTest textTest(std::string_view value, bool hasSubject) {
  return {TestCost::text, [wanted = WantedText(value), hasSubject](LazyMessage& message) {
            return (hasSubject && wanted.isInField(message, "Subject")) || wanted.isIn(message.text());
          }};
}

Result<MessageTest> bodyTest(std::string_view value) { return textTest(value, /*hasSubject=*/false); }

template <bool (*kMatches)(const Message&)>
bool ofWhole(LazyMessage& message) {
  return message.message() && kMatches(*message.message());
}
bool hasCalendar(const Message& message) { return message.calendar().has_value(); }
bool isReport(const Message& message) { return message.report().has_value(); }
bool isValid(const Message& message) { return message.security().isValid; }

constexpr struct {
  std::string_view name, value;
  TestCost cost;
  bool (*matches)(LazyMessage&);
} kStates[] = {
    {"has", "attachment", TestCost::structure,
     [](LazyMessage& message) { return message.attachmentCount() > 0; }},
    {"has", "calendar", TestCost::structure, ofWhole<hasCalendar>},
    {"is", "signed", TestCost::structure, [](LazyMessage& message) { return message.isSigned(); }},
    {"is", "valid", TestCost::structure, ofWhole<isValid>},
    {"is", "encrypted", TestCost::structure, [](LazyMessage& message) { return message.isEncrypted(); }},
    {"is", "repaired", TestCost::structure, [](LazyMessage& message) { return message.isRepaired(); }},
    {"is", "report", TestCost::structure, ofWhole<isReport>},
    {"is", "unread", TestCost::place, [](LazyMessage& message) { return message.isUnread(); }},
};

Result<MessageTest> stateTest(std::string_view name, std::string_view value) {
  std::string known;
  for (const auto& state : kStates) {
    if (state.name != name) continue;
    if (equalsNoCase(state.value, value)) return MessageTest{state.cost, state.matches};
    known.append(known.empty() ? "" : ", ").append(state.value);
  }
  return badValue("not one of " + known);
}

constexpr struct {
  std::string_view name, field;
} kFields[] = {{"from", "From"}, {"to", "To"},           {"cc", "Cc"},
               {"bcc", "Bcc"},   {"subject", "Subject"}, {"list", "List-ID"}};

constexpr struct {
  std::string_view name;
  Result<MessageTest> (*make)(std::string_view value);
} kTests[] = {
    {"body", bodyTest},
    {"date", dateTest},
    {"size", sizeTest},
    {"type", typeTest},
    {"file", fileTest},
    {"has", [](std::string_view value) { return stateTest("has", value); }},
    {"is", [](std::string_view value) { return stateTest("is", value); }},
};

}  // namespace

bool isTestName(std::string_view name) {
  const auto isName = [name](const auto& row) { return equalsNoCase(row.name, name); };
  return std::ranges::any_of(kFields, isName) || std::ranges::any_of(kTests, isName);
}

Result<MessageTest> testOf(std::string_view name, std::string_view value) {
  for (const auto& row : kFields)
    if (equalsNoCase(row.name, name)) return headerTest(row.field, value);
  for (const auto& row : kTests)
    if (equalsNoCase(row.name, name)) return row.make(value);
  return badValue("there is no such test");
}

MessageTest headerTest(std::string_view field, std::string_view text) {
  return {TestCost::header, [field = std::string(field), wanted = WantedText(text)](LazyMessage& message) {
            return wanted.isInField(message, field);
          }};
}

MessageTest wordTest(std::string_view text) { return textTest(text, /*hasSubject=*/true); }

}  // namespace mailtree
