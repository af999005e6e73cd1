#include "cli/support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "cli/support/errors.h"
#include "mailtree/base/Ascii.h"

extern char** environ;

namespace mailtree::cli {
namespace {

/// How much of a program's answer is reported.
constexpr std::size_t kMostSaid = 4096;

class Descriptor {
 public:
  Descriptor() = default;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }
  void close() {
    if (m_number >= 0) ::close(m_number);
    m_number = -1;
  }
  int number() const { return m_number; }
  bool isOpen() const { return m_number >= 0; }

 private:
  friend struct Pipe;
  int m_number = -1;
};

/// No other program inherits its ends.
struct Pipe {
  Descriptor from, to;

  bool open() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    from.m_number = ends[0];
    to.m_number = ends[1];
    return true;
  }
};

/// A program that ends early must not end this one.
class WithoutPipeSignal {
 public:
  WithoutPipeSignal() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &m_before);
  }
  WithoutPipeSignal(const WithoutPipeSignal&) = delete;
  WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;
  ~WithoutPipeSignal() { ::sigaction(SIGPIPE, &m_before, nullptr); }

 private:
  struct sigaction m_before {};
};

/// Starts the program; returns 0 or the error number.
int start(const std::string& program, const std::vector<std::string>& arguments, const Pipe& input,
          const Pipe& output, pid_t& process) {
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  sigset_t defaults;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawn_file_actions_adddup2(&actions, input.from.number(), STDIN_FILENO);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
    ::posix_spawn_file_actions_adddup2(&actions, output.to.number(), stream);
  ::sigemptyset(&defaults);
  ::sigaddset(&defaults, SIGPIPE);  // ignored here, and that would be inherited
  ::posix_spawnattr_setsigdefault(&attributes, &defaults);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error = ::posix_spawnp(&process, program.c_str(), &actions, &attributes, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  return error;
}

/// Writes as much as the program takes now; false when it takes no more.
bool feed(int to, std::string_view& input) {
  const ssize_t count = ::write(to, input.data(), input.size());
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  input.remove_prefix(static_cast<std::size_t>(count));
  return !input.empty();
}

/// Reads what the program says; false at its end.
bool listen(int from, std::string& said) {
  char buffer[4096];
  const ssize_t count = ::read(from, buffer, sizeof buffer);
  if (count < 0) return errno == EINTR;
  const std::size_t room = kMostSaid - std::min(said.size(), kMostSaid);
  said.append(buffer, std::min(static_cast<std::size_t>(count), room));
  return count > 0;
}

/// Writes the input and reads the answer side by side: a program may say more than a pipe holds before it has
/// read everything.
std::string talk(Pipe& input, Pipe& output, std::string_view& text) {
  std::string said;
  ::fcntl(input.to.number(), F_SETFL, O_NONBLOCK);
  if (text.empty()) input.to.close();
  while (output.from.isOpen() || input.to.isOpen()) {
    pollfd ends[] = {{output.from.number(), POLLIN, 0}, {input.to.number(), POLLOUT, 0}};
    if (::poll(ends, 2, -1) < 0 && errno != EINTR) break;
    if (ends[1].revents != 0 && !feed(input.to.number(), text)) input.to.close();
    if (ends[0].revents != 0 && !listen(output.from.number(), said)) output.from.close();
  }
  return said;
}

int statusOf(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
  return status;
}

std::string textOf(int status) {
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

/// Several lines as one.
std::string joinedLines(std::string_view text) {
  std::string joined;
  while (!(text = trim(text)).empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    joined.append(joined.empty() ? "" : "; ").append(trimRight(text.substr(0, end)));
    text.remove_prefix(end);
  }
  return joined;
}

}  // namespace

Exit runProgram(const std::string& program, const std::vector<std::string>& arguments,
                std::string_view input) {
  const WithoutPipeSignal guard;
  Pipe in, out;
  pid_t process = 0;
  const int error = in.open() && out.open() ? start(program, arguments, in, out, process) : errno;
  if (error != 0) {
    reportError(program, std::strerror(error));
    return Exit::unreadable;
  }
  in.from.close();
  out.to.close();
  const std::string said = joinedLines(talk(in, out, input));
  const int status = statusOf(process);
  const std::string answer = said.empty() ? said : ": " + said;
  if (status != 0) {
    reportError(program, textOf(status) + answer);
    return Exit::negative;
  }
  if (!input.empty()) {
    reportError(program, "did not read the whole message" + answer);
    return Exit::negative;
  }
  if (!said.empty()) reportError(program, said);
  return Exit::fine;
}

}  // namespace mailtree::cli
