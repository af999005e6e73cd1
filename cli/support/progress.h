// cli/support/progress.h - progress of a long operation, drawn on standard error when that is a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace mailtree::cli {

/// "[#####.....]  50 %  5000 rows  1000/s  0:05 left", given the elapsed seconds.
std::string progressLine(std::uint64_t rows, std::uint64_t bytesDone, std::uint64_t bytesInAll,
                         double seconds);

/// Erases the progress line, if one is drawn, before other output.
void clearProgressLine();

/// Draws the progress line, redraws it at intervals and erases it at the end.
class ProgressBar {
 public:
  explicit ProgressBar(std::uint64_t bytesInAll);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar() { clearProgressLine(); }

  void show(std::uint64_t rows, std::uint64_t bytesDone);

 private:
  using Clock = std::chrono::steady_clock;

  std::uint64_t m_bytesInAll;
  bool m_isTerminal;
  Clock::time_point m_begin, m_next;
};

}  // namespace mailtree::cli
