// cli/support/capture.h - standard output and standard error of a thread, which may be kept until its turn.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace mailtree::cli {

/// Where results go: std::cout, or what an OutputCapture of this thread keeps.
std::ostream& standardOutput();
/// Where errors go: std::cerr, or what an OutputCapture of this thread keeps.
std::ostream& standardError();

/// What a thread wrote, in order.
struct CapturedText {
  bool isError;
  std::string text;
};
using Captured = std::vector<CapturedText>;

/// Writes it. On the main thread, which has no capture of its own.
void print(const Captured& captured);

/// Keeps what its thread writes, as long as it lives. One at a time for each thread.
class OutputCapture {
 public:
  OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;
  ~OutputCapture();

  Captured take();

 private:
  struct Streams;
  friend std::ostream& standardOutput();
  friend std::ostream& standardError();

  static thread_local Streams* s_ofThread;
  std::unique_ptr<Streams> m_streams;
};

}  // namespace mailtree::cli
