#include "mailtree/store/mbox_quoting.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"

namespace mailtree {
namespace {

constexpr std::string_view kFrom = "From ", kQuotedFrom = ">From ", kLengthField = "Content-Length:";
/// No address is longer (RFC 5321, 4.5.3.1).
constexpr std::size_t kLongestSender = 320;

bool isSenderWord(std::string_view sender) noexcept {
  const auto isBad = [](char c) { return isSpaceAscii(c) || isControlAscii(c) || c == '"'; };
  return !sender.empty() && sender.size() <= kLongestSender && std::ranges::none_of(sender, isBad);
}

/// "Sat Nov 21 08:30:00 2026".
void appendAsctime(std::chrono::sys_seconds time, std::string& out) {
  using std::chrono::December, std::chrono::hh_mm_ss, std::chrono::January, std::chrono::seconds,
      std::chrono::sys_days, std::chrono::weekday, std::chrono::year, std::chrono::year_month_day;
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  // Only years of four digits make a separator.
  const sys_days first = sys_days(year(1970) / January / 1), last = sys_days(year(9999) / December / 31);
  const sys_days days = std::clamp(floor<std::chrono::days>(time), first, last);
  const year_month_day date(days);
  const hh_mm_ss<seconds> clock(time - floor<std::chrono::days>(time));
  char text[64];
  std::snprintf(text, sizeof text, "%s %s %2u %02d:%02d:%02d %04d", kDays[weekday(days).c_encoding()],
                kMonths[static_cast<unsigned>(date.month()) - 1], static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(date.year()));
  out += text;
}

/// Where the ">" before a "From " begin, if they begin a line; npos otherwise.
std::size_t lineBefore(std::string_view text, std::size_t from) noexcept {
  while (from > 0 && text[from - 1] == '>') --from;
  return from == 0 || text[from - 1] == '\n' ? from : std::string_view::npos;
}

void appendQuoted(std::string_view message, std::string& out) {
  std::size_t done = 0;
  for (std::size_t at = 0; (at = findSubstring(message, kFrom, at)) != message.npos; at += kFrom.size()) {
    if (lineBefore(message, at) == message.npos) continue;
    out.append(message.substr(done, at - done)).append(">");
    done = at;
  }
  out.append(message.substr(done));
}

std::optional<std::uint64_t> numberIn(std::string_view text) noexcept {
  text = trim(text);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return {};
  return number;
}

}  // namespace

void appendMboxEntry(std::string_view message, std::string_view sender, std::chrono::sys_seconds date,
                     std::string& out) {
  const bool lacksEnd = !message.empty() && message.back() != '\n';
  out.append(kFrom).append(isSenderWord(sender) ? sender : "MAILER-DAEMON").append(" ");
  appendAsctime(date, out);
  if (lacksEnd)
    out.append(" -0000");
  else if (readMboxHeader(message).hasLength)
    out.append(" +0000");
  out.append("\n");
  appendQuoted(message, out);
  out.append(lacksEnd ? "\n\n" : "\n");
}

void unquoteLines(std::string& message) noexcept {
  std::size_t at = findSubstring(message, kQuotedFrom), done = 0, to = 0;
  if (at == message.npos) return;
  char* const bytes = message.data();
  const auto moveUpTo = [&](std::size_t end) {
    std::memmove(bytes + to, bytes + done, end - done);
    to += end - done;
  };
  for (; at != message.npos; at = findSubstring(message, kQuotedFrom, at + kQuotedFrom.size())) {
    if (lineBefore(message, at) == message.npos) continue;
    moveUpTo(at);
    done = at + 1;
  }
  moveUpTo(message.size());
  message.resize(to);
}

std::size_t sizeWithoutEmptyLine(std::string_view message) noexcept {
  if (message == "\n" || message.ends_with("\n\n")) return message.size() - 1;
  if (message == "\r\n" || message.ends_with("\n\r\n")) return message.size() - 2;
  return message.size();
}

MboxHeader readMboxHeader(std::string_view message) noexcept {
  MboxHeader header;
  for (std::size_t at = 0; at < message.size();) {
    const std::size_t end = message.find('\n', at);
    if (end == message.npos) break;
    const std::string_view line = message.substr(at, end - at);
    at = end + 1;
    if (line.empty() || line == "\r") {
      header.size = at;
      break;
    }
    if (header.hasLength || !beginsWithNoCase(line, kLengthField)) continue;
    header.hasLength = true;
    header.contentLength = numberIn(line.substr(kLengthField.size()));
  }
  return header;
}

}  // namespace mailtree
