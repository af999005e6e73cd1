#include "cli/support/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

struct Range {
  char32_t first, last;
};

bool isIn(char32_t c, const auto& ranges) {
  for (const Range& range : ranges)
    if (c >= range.first && c <= range.last) return true;
  return false;
}

constexpr Range kCombining[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x0610, 0x061A},
                                {0x064B, 0x065F}, {0x0E31, 0x0E31}, {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E},
                                {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200C, 0x200D}, {0x20D0, 0x20FF},
                                {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};

constexpr Range kWide[] = {{0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0x33FF},  {0x3400, 0x4DBF},
                           {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},
                           {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F},
                           {0x1F680, 0x1F6FF}, {0x1F900, 0x1FAFF}, {0x20000, 0x3FFFD}};

std::size_t columnsOf(char32_t c) {
  if (c < 0x300) return 1;
  if (isIn(c, kCombining)) return 0;
  return isIn(c, kWide) ? 2 : 1;
}

/// Upper bound for any terminal.
std::size_t maxColumnsOf(char32_t c) { return c < 0x1100 ? 1 : 2; }

constexpr std::array kInkCodes = {"", "2", "1", "36", "32", "33", "31"};
static_assert(kInkCodes.size() == static_cast<std::size_t>(Ink::warning) + 1);

/// The first line of a broken text: up to the last blank that fits, if any.
std::string_view firstLineOf(std::string_view text, std::size_t columns) {
  const std::string_view fitting = fitMaxWidth(text, columns);
  const std::size_t blank = fitting.size() < text.size() ? fitting.rfind(' ') : std::string_view::npos;
  return blank == std::string_view::npos ? fitting : fitting.substr(0, blank + 1);
}

}  // namespace

void writeHarmless(std::string_view text) {
  if (standardOutputIsTerminal())
    std::cout << printableLines(text);
  else
    std::cout << text;
}

void writeLine(std::ostream& out, std::size_t columns, std::string_view prefix, std::string_view indent,
               std::string_view text) {
  constexpr std::size_t kNarrowest = 4;
  const std::string shown = printable(text);
  const std::size_t taken = displayWidth(indent);
  const std::size_t room = columns == 0 ? std::string::npos : std::max(columns, taken + kNarrowest) - taken;
  std::string_view rest = shown;
  do {
    const std::string_view line = firstLineOf(rest, room);
    rest.remove_prefix(line.size());
    out << prefix << (rest.empty() ? line : trimRight(line)) << '\n';
    prefix = indent;
  } while (!rest.empty());
}

void writeLine(std::string_view prefix, std::string_view text) {
  writeLine(std::cout, standardOutputColumns(), prefix, std::string(displayWidth(prefix), ' '), text);
}

std::string humanSize(std::uint64_t bytes) {
  if (bytes < 1000) return std::to_string(bytes) + " B";
  constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; value >= 999.5 && unit + 1 < std::size(kUnits); ++unit) value /= 1000;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), value < 9.95 ? "%.1f %s" : "%.0f %s", value, kUnits[unit]);
  return text.data();
}

namespace {

/// The width of a text whose characters `columnsOfOne` measures.
template <class Measure>
std::size_t widthOf(std::string_view utf8, Measure columnsOfOne) {
  std::size_t width = 0;
  for (std::size_t at = 0; at < utf8.size();) width += columnsOfOne(nextCodePoint(utf8, at));
  return width;
}

/// The longest prefix that fits.
template <class Measure>
std::string_view fit(std::string_view utf8, std::size_t columns, Measure columnsOfOne) {
  std::size_t width = 0;
  for (std::size_t at = 0; at < utf8.size();) {
    const std::size_t begin = at;
    width += columnsOfOne(nextCodePoint(utf8, at));
    if (width > columns) return utf8.substr(0, begin);
  }
  return utf8;
}

}  // namespace

std::size_t displayWidth(std::string_view utf8) { return widthOf(utf8, columnsOf); }

std::string_view fitWidth(std::string_view utf8, std::size_t columns) {
  return fit(utf8, columns, columnsOf);
}

std::size_t maxDisplayWidth(std::string_view utf8) { return widthOf(utf8, maxColumnsOf); }

std::string_view fitMaxWidth(std::string_view utf8, std::size_t columns) {
  return fit(utf8, columns, maxColumnsOf);
}

std::string Style::paint(Ink ink, std::string_view text) const {
  const char* code = kInkCodes[static_cast<std::size_t>(ink)];
  if (!color || !*code) return std::string(text);
  return std::string("\033[").append(code).append("m").append(text).append("\033[0m");
}

bool standardOutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }

std::size_t standardOutputColumns() {
  constexpr std::size_t kUsual = 80, kFewest = 24;
  if (!standardOutputIsTerminal()) return 0;
  winsize size{};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? std::max<std::size_t>(size.ws_col, kFewest) : kUsual;
}

bool leadsToTerminal(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) return false;
  const int descriptor = open(path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool isTerminal = isatty(descriptor) != 0;
  close(descriptor);
  return isTerminal;
}

Style styleOfStandardOutput(ColorChoice choice) {
  const bool terminal = standardOutputIsTerminal();
  const char* noColor = std::getenv("NO_COLOR");
  const bool wanted = terminal && !(noColor && *noColor);
  return {choice == ColorChoice::always || (choice == ColorChoice::automatic && wanted), terminal,
          standardOutputColumns()};
}

}  // namespace mailtree::cli
