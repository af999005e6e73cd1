// cli/support/interrupt.h - Ctrl-C during work that ends after something whole.
#pragma once

#include <atomic>

namespace mailtree::cli {

/// While it lives, the first SIGINT or SIGTERM only sets a flag; the second ends the program as usual.
class InterruptGuard {
 public:
  InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  ~InterruptGuard();

  /// False when there was no guard yet.
  static const std::atomic<bool>& flag() noexcept;
};

}  // namespace mailtree::cli
