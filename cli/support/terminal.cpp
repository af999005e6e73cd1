#include "cli/support/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <ostream>

#include "cli/support/capture.h"
#include "mailtree/base/Ascii.h"

namespace mailtree::cli {
namespace {

constexpr std::array kInkCodes = {"", "2", "1", "36", "32", "33", "31"};
static_assert(kInkCodes.size() == static_cast<std::size_t>(Ink::warning) + 1);

/// The first line of a broken text: up to the last blank that fits, if any.
std::string_view firstLineOf(std::string_view text, std::size_t columns) {
  const std::string_view fitting = fitMaxWidth(text, columns);
  if (fitting.size() == text.size()) return fitting;
  if (text[fitting.size()] == ' ') return text.substr(0, fitting.size() + 1);
  const std::size_t blank = fitting.rfind(' ');
  return blank == std::string_view::npos ? fitting : fitting.substr(0, blank + 1);
}

}  // namespace

void writeHarmless(std::string_view text) {
  if (standardOutputIsTerminal())
    standardOutput() << printableLines(text);
  else
    standardOutput() << text;
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
  writeLine(standardOutput(), standardOutputColumns(), prefix, std::string(displayWidth(prefix), ' '), text);
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
