#include "cli/support/capture.h"

#include <iostream>
#include <sstream>
#include <utility>

#include "cli/support/progress.h"

namespace mailtree::cli {

struct OutputCapture::Streams {
  std::ostringstream output, errors;
  Captured before;  ///< What neither of them holds any more.

  /// Puts what a stream holds after what was written before.
  void cut(std::ostringstream& stream) {
    if (stream.tellp() <= 0) return;
    before.push_back({&stream == &errors, stream.str()});
    stream.str({});
  }
};

thread_local OutputCapture::Streams* OutputCapture::s_ofThread = nullptr;

OutputCapture::OutputCapture() : m_streams(std::make_unique<Streams>()) { s_ofThread = m_streams.get(); }

OutputCapture::~OutputCapture() { s_ofThread = nullptr; }

Captured OutputCapture::take() {
  m_streams->cut(m_streams->errors);
  m_streams->cut(m_streams->output);
  return std::move(m_streams->before);
}

std::ostream& standardOutput() {
  OutputCapture::Streams* const streams = OutputCapture::s_ofThread;
  if (!streams) return std::cout;
  streams->cut(streams->errors);
  return streams->output;
}

std::ostream& standardError() {
  if (OutputCapture::Streams* const streams = OutputCapture::s_ofThread) {
    streams->cut(streams->output);
    return streams->errors;
  }
  clearProgressLine();
  return std::cerr;
}

void print(const Captured& captured) {
  for (const CapturedText& part : captured) (part.isError ? standardError() : std::cout) << part.text;
}

}  // namespace mailtree::cli
