#include "cli/support/interrupt.h"

#include <signal.h>

#include <iterator>

namespace mailtree::cli {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

std::atomic<bool> wasInterrupted = false;
struct sigaction actionsBefore[std::size(kSignals)];

void restore() {
  for (std::size_t i = 0; i < std::size(kSignals); ++i) ::sigaction(kSignals[i], &actionsBefore[i], nullptr);
}

extern "C" void setFlag(int /*signal*/) {
  wasInterrupted = true;
  restore();  // for the next one
}

}  // namespace

InterruptGuard::InterruptGuard() {
  wasInterrupted = false;
  struct sigaction action {};
  action.sa_handler = setFlag;
  sigemptyset(&action.sa_mask);
  for (const int signal : kSignals) sigaddset(&action.sa_mask, signal);
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    ::sigaction(kSignals[i], nullptr, &actionsBefore[i]);
    // Signals ignored by the caller, as under nohup, stay ignored.
    if (actionsBefore[i].sa_handler != SIG_IGN) ::sigaction(kSignals[i], &action, nullptr);
  }
}

InterruptGuard::~InterruptGuard() { restore(); }

const std::atomic<bool>& InterruptGuard::flag() noexcept { return wasInterrupted; }

}  // namespace mailtree::cli
