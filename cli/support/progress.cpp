#include "cli/support/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

constexpr std::chrono::milliseconds kInterval(100);
constexpr unsigned kCells = 24;

/// Global because all bars share one terminal.
bool isLineDrawn = false;

/// "0:05", "12:00", "3:00:00"
std::string durationText(std::uint64_t seconds) {
  char text[64];
  const auto hours = static_cast<unsigned long long>(seconds / 3600);
  const auto minutes = static_cast<unsigned>(seconds / 60 % 60), rest = static_cast<unsigned>(seconds % 60);
  if (hours > 0)
    std::snprintf(text, sizeof text, "%llu:%02u:%02u", hours, minutes, rest);
  else
    std::snprintf(text, sizeof text, "%u:%02u", minutes, rest);
  return text;
}

}  // namespace

std::string progressLine(const char* things, std::uint64_t count, std::uint64_t bytesDone,
                         std::uint64_t bytesInAll, double seconds) {
  const double done = bytesInAll ? static_cast<double>(bytesDone) / static_cast<double>(bytesInAll) : 0.0;
  const double part = std::clamp(done, 0.0, 1.0);
  std::string line;
  if (bytesInAll > 0) {
    const auto cells = static_cast<std::size_t>(part * kCells);
    char percent[16];
    std::snprintf(percent, sizeof percent, "] %3u %%  ", static_cast<unsigned>(part * 100));
    line = "[" + std::string(cells, '#') + std::string(kCells - cells, '.') + percent;
  }
  line += std::to_string(count) + " " + things + "  " + humanSize(bytesDone);
  if (seconds <= 0) return line;
  line += "  " + std::to_string(static_cast<std::uint64_t>(static_cast<double>(count) / seconds)) + "/s";
  if (part <= 0) return line;
  return line + "  " + durationText(static_cast<std::uint64_t>(std::ceil(seconds / part * (1 - part)))) +
         " left";
}

ProgressBar::ProgressBar(std::uint64_t bytesInAll, const char* things, bool isHidden)
    : m_bytesInAll(bytesInAll),
      m_things(things),
      m_isShown(!isHidden && ::isatty(STDERR_FILENO) == 1),
      m_begin(Clock::now()),
      m_next(m_begin) {}

void ProgressBar::show(std::uint64_t count, std::uint64_t bytesDone) {
  if (!m_isShown) return;
  const Clock::time_point now = Clock::now();
  if (now < m_next) return;
  m_next = now + kInterval;
  isLineDrawn = true;
  const double seconds = std::chrono::duration<double>(now - m_begin).count();
  std::fprintf(stderr, "\r%s\x1b[K", progressLine(m_things, count, bytesDone, m_bytesInAll, seconds).c_str());
}

void clearProgressLine() {
  if (isLineDrawn) std::fputs("\r\x1b[K", stderr);
  isLineDrawn = false;
}

void printBesideProgress(std::string_view text) {
  static const bool kIsTerminal = standardOutputIsTerminal();
  if (kIsTerminal) clearProgressLine();
  std::cout << text;
  if (kIsTerminal) std::cout.flush();
}

}  // namespace mailtree::cli
