#include "cli/secure/passwords.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

constexpr const char* kVariable = "MAILTREE_PASSWORD";

class Descriptor {
 public:
  Descriptor(const char* path, int flags) : m_number(::open(path, flags | O_CLOEXEC)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (isOpen()) ::close(m_number);
  }
  bool isOpen() const noexcept { return m_number >= 0; }
  int number() const noexcept { return m_number; }

 private:
  int m_number;
};

/// Reads one line and no further, because the rest may be for another reader. Calls `mayRead`, which may
/// wait, before each character. Returns 0 or an errno.
template <class MayRead>
int readLine(int descriptor, Secret& secret, MayRead&& mayRead) {
  for (bool hasReturn = false;;) {
    if (!mayRead()) return EINTR;
    char c = 0;
    const ssize_t count = ::read(descriptor, &c, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0 || c == '\n') return 0;
    // Only one CR directly before LF belongs to the line break.
    if (hasReturn && !secret.append('\r')) return EMSGSIZE;
    hasReturn = c == '\r';
    if (!hasReturn && !secret.append(c)) return EMSGSIZE;
  }
}

int readLine(int descriptor, Secret& secret) {
  return readLine(descriptor, secret, [] { return true; });
}

/// Signals that end or stop a program from outside.
constexpr int kCaughtSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
volatile std::sig_atomic_t caughtSignal = 0;

extern "C" void recordSignal(int signal) { caughtSignal = signal; }

/// Within a scope these signals arrive only during a wait for input, and only end that wait. Signals ignored
/// before stay ignored.
class SignalCatcher {
 public:
  SignalCatcher() {
    caughtSignal = 0;
    sigset_t caught;
    sigemptyset(&caught);
    for (const int signal : kCaughtSignals) sigaddset(&caught, signal);
    ::sigprocmask(SIG_BLOCK, &caught, &m_mask);
    struct sigaction note {};
    note.sa_handler = recordSignal;
    for (std::size_t i = 0; i < m_before.size(); ++i) {
      ::sigaction(kCaughtSignals[i], nullptr, &m_before[i]);
      if (m_before[i].sa_handler != SIG_IGN) ::sigaction(kCaughtSignals[i], &note, nullptr);
    }
  }
  SignalCatcher(const SignalCatcher&) = delete;
  SignalCatcher& operator=(const SignalCatcher&) = delete;
  ~SignalCatcher() {
    for (std::size_t i = 0; i < m_before.size(); ++i) ::sigaction(kCaughtSignals[i], &m_before[i], nullptr);
    ::sigprocmask(SIG_SETMASK, &m_mask, nullptr);
  }
  /// False when a signal came first.
  bool waitFor(int descriptor) const {
    pollfd waiting{descriptor, POLLIN, 0};
    while (caughtSignal == 0)
      if (::ppoll(&waiting, 1, nullptr, &m_mask) >= 0 || errno != EINTR) return true;
    return false;
  }

 private:
  std::array<struct sigaction, std::size(kCaughtSignals)> m_before{};
  sigset_t m_mask{};
};

/// Turns off a terminal's echo within a scope.
class SilentTerminal {
 public:
  explicit SilentTerminal(int descriptor) : m_descriptor(descriptor) {
    if (::tcgetattr(m_descriptor, &m_before) != 0) return;
    termios silent = m_before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    m_isSilent = ::tcsetattr(m_descriptor, TCSAFLUSH, &silent) == 0;
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;
  ~SilentTerminal() {
    if (m_isSilent) ::tcsetattr(m_descriptor, TCSAFLUSH, &m_before);
  }
  bool isSilent() const noexcept { return m_isSilent; }

 private:
  int m_descriptor;
  termios m_before{};
  bool m_isSilent = false;
};

bool writeText(int descriptor, std::string_view text) {
  return ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// Returns 0 or an errno: EINTR for a signal, after the terminal's state is restored.
int askOnce(int terminal, std::string_view purpose, Secret& secret) {
  const SignalCatcher signals;
  int error = EIO;
  {
    const SilentTerminal silence(terminal);
    if (!silence.isSilent() || !writeText(terminal, "Password for " + printable(purpose) + ": ")) return EIO;
    error = readLine(terminal, secret, [&] { return signals.waitFor(terminal); });
  }
  return writeText(terminal, "\n") ? error : EIO;
}

/// Re-raises a signal that interrupts the prompt. A program that was stopped asks again when it continues.
bool askUntilDone(int terminal, std::string_view purpose, Secret& secret) {
  for (;;) {
    const int error = askOnce(terminal, purpose, secret);
    if (error == 0) return true;
    secret.wipe();
    if (error != EINTR) return false;
    const int signal = caughtSignal;
    ::raise(signal);
    if (signal != SIGTSTP) return false;
  }
}

}  // namespace

bool Secret::append(char c) noexcept {
  if (m_size == kMaxSize) return false;
  m_bytes[m_size++] = c;
  return true;
}

void Secret::wipe() noexcept {
  ::explicit_bzero(m_bytes.data(), m_bytes.size());
  m_size = 0;
}

void addPasswordOptions(Verb verb, PasswordOptions& options) {
  verb.addRepeated("--password-file", options.files,
                   "File whose first line is a password; with several, each is tried")
      .kind(kFile);
  verb.addNumber("--password-fd", options.descriptor, "Open file descriptor whose first line is a password");
}

Exit Passwords::read(const PasswordOptions& options) {
  for (const std::string& path : options.files)
    if (const Exit result = readFile(path); result != Exit::fine) return result;
  if (options.descriptor) return readDescriptor(*options.descriptor, "--password-fd");
  return options.files.empty() ? readEnvironment() : Exit::fine;
}

const Secret* Passwords::ask(std::string_view purpose) {
  const Descriptor terminal("/dev/tty", O_RDWR | O_NOCTTY);
  if (!terminal.isOpen()) return nullptr;
  if (askUntilDone(terminal.number(), purpose, m_secrets.emplace_back())) return &m_secrets.back();
  m_secrets.pop_back();
  return nullptr;
}

bool Passwords::askForNew(std::string_view purpose) {
  const Secret* const first = ask(purpose);
  if (!first || first->view().empty()) return true;
  const Secret* const again = ask(std::string(purpose) + ", again");
  const bool isSame = again && again->view() == first->view();
  if (again) m_secrets.pop_back();
  if (!isSame) reportError(purpose, "the two passwords differ");
  return isSame;
}

Exit Passwords::readFile(const std::string& path) {
  const Descriptor file(path.c_str(), O_RDONLY);
  if (file.isOpen()) return readDescriptor(file.number(), path);
  reportError(path, std::generic_category().message(errno));
  return Exit::unreadable;
}

Exit Passwords::readDescriptor(int descriptor, std::string_view name) {
  const int error = readLine(descriptor, m_secrets.emplace_back());
  if (error == 0) return Exit::fine;
  reportError(name, error == EMSGSIZE ? "the first line is too long for a password"
                                      : std::generic_category().message(error));
  return Exit::unreadable;
}

Exit Passwords::readEnvironment() {
  const char* value = std::getenv(kVariable);
  if (!value) return Exit::fine;
  Secret& secret = m_secrets.emplace_back();
  while (*value && secret.append(*value)) ++value;
  if (!*value) return Exit::fine;
  reportError(kVariable, "is too long for a password");
  return Exit::unreadable;
}

}  // namespace mailtree::cli
