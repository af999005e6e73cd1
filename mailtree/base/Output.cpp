#include "mailtree/base/Output.h"

#include <ostream>

namespace mailtree {

bool ProgressContext::advance(std::size_t bytes) {
  if (m_aborted) return false;
  m_bytesDone += bytes;
  const bool isContinued =
      !m_monitor || neverThrow(false, [&] { return m_monitor->onProgress(m_bytesDone); });
  m_aborted = !isContinued;
  return isContinued;
}

bool _svOutput::write(std::string_view bytes, ProgressContext& progress, LogBase& log) {
  if (m_failed) return false;
  // An abort fails the sink as well: its content stays incomplete even if others write to it.
  m_failed = progress.aborted() || !neverThrow(false, [&] { return put(bytes, log); }) ||
             !progress.advance(bytes.size());
  return !m_failed;
}

bool MemoryOutput::put(std::string_view bytes, LogBase& log) {
  if (m_destination.append(bytes)) return true;
  log.logError("Out of memory");
  return false;
}

bool StreamOutput::put(std::string_view bytes, LogBase& log) {
  const bool written = neverThrow(false, [&] {
    m_stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return m_stream.good();
  });
  if (!written) log.logError("Failed to write to the stream");
  return written;
}

}  // namespace mailtree
