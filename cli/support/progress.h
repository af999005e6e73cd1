// cli/support/progress.h - progress of a long operation, drawn on standard error when that is a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree::cli {

/// "[#####.....]  50 %  5000 rows  1.2 MB  1000/s  0:05 left", given the elapsed seconds. Without the bar and
/// the time left when the bytes in all are not known.
std::string progressLine(const char* things, std::uint64_t count, std::uint64_t bytesDone,
                         std::uint64_t bytesInAll, double seconds);

/// Erases the progress line, if one is drawn, before other output.
void clearProgressLine();

/// Writes to standard output; on a terminal at once, and not into the progress line.
void printBesideProgress(std::string_view text);

/// Draws the progress line, redraws it at intervals and erases it at the end.
class ProgressBar {
 public:
  /// @param bytesInAll  0 when not known.
  /// @param things      what is counted, such as "rows".
  explicit ProgressBar(std::uint64_t bytesInAll, const char* things, bool isHidden = false);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar() { clearProgressLine(); }

  void show(std::uint64_t count, std::uint64_t bytesDone);

 private:
  using Clock = std::chrono::steady_clock;

  std::uint64_t m_bytesInAll;
  const char* m_things;
  bool m_isShown;
  Clock::time_point m_begin, m_next;
};

}  // namespace mailtree::cli
