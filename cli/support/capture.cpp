#include "cli/support/capture.h"

#include <iostream>
#include <sstream>
#include <utility>

#include "cli/support/progress.h"

namespace mailtree::cli {

struct OutputCapture::Streams {
  std::ostringstream output, errors;
};

thread_local OutputCapture::Streams* OutputCapture::s_ofThread = nullptr;

OutputCapture::OutputCapture() : m_streams(std::make_unique<Streams>()) { s_ofThread = m_streams.get(); }

OutputCapture::~OutputCapture() { s_ofThread = nullptr; }

Captured OutputCapture::take() {
  return {.output = std::move(m_streams->output).str(), .errors = std::move(m_streams->errors).str()};
}

std::ostream& standardOutput() noexcept {
  return OutputCapture::s_ofThread ? OutputCapture::s_ofThread->output : std::cout;
}

std::ostream& standardError() noexcept {
  if (OutputCapture::s_ofThread) return OutputCapture::s_ofThread->errors;
  clearProgressLine();
  return std::cerr;
}

void print(const Captured& captured) {
  std::cout << captured.output;
  if (!captured.errors.empty()) standardError() << captured.errors;
}

}  // namespace mailtree::cli
