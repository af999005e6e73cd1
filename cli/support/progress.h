// cli/support/progress.h - how far a long operation is, on standard error when that is a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace mailtree::cli {

/// "[#####.....]  50 %  5000 rows  1000/s  0:05 left" for what was done in so many seconds.
std::string progressLine(std::uint64_t rows, std::uint64_t bytesDone, std::uint64_t bytesInAll,
                         double seconds);

/// Takes the line away that stands on the terminal, so that something else can be written there.
void clearProgressLine();

/// Draws the line and draws it again as time goes by; nothing is left of it at the end.
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
