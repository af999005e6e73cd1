#include "mailtree/email/output/unencoded.h"

#include <string>

#include "mailtree/base/Search.h"

namespace mailtree {
namespace {

/// Collects small pieces, so that the sink gets large ones.
class PieceWriter {
 public:
  PieceWriter(_svOutput& sink, ProgressContext& progress, LogBase& log) noexcept
      : m_sink(sink), m_progress(progress), m_log(log) {}

  bool put(std::string_view piece) {
    if (m_gathered.size() + piece.size() > kEnough && !flush()) return false;
    if (piece.size() > kEnough) return m_sink.write(piece, m_progress, m_log);
    m_gathered.append(piece);
    return true;
  }
  bool flush() {
    const bool written = m_gathered.empty() || m_sink.write(m_gathered, m_progress, m_log);
    m_gathered.clear();
    return written;
  }

 private:
  static constexpr std::size_t kEnough = std::size_t{16} * 1024;

  _svOutput& m_sink;
  ProgressContext& m_progress;
  LogBase& m_log;
  std::string m_gathered;
};

}  // namespace

bool DotStuffedOutput::put(std::string_view bytes, LogBase& log) {
  constexpr std::string_view kDottedLine = "\n.";
  if (bytes.empty()) return true;
  const bool beginsWithDot = m_atLineBegin && bytes.front() == '.';
  m_atLineBegin = bytes.back() == '\n';
  std::size_t at = findSubstring(bytes, kDottedLine);
  if (!beginsWithDot && at == std::string_view::npos) return m_sink.write(bytes, m_progress, log);

  PieceWriter pieces(m_sink, m_progress, log);
  if (beginsWithDot && !pieces.put(".")) return false;
  for (; at != std::string_view::npos; at = findSubstring(bytes, kDottedLine)) {
    if (!pieces.put(bytes.substr(0, at + 2))) return false;  // the dot is written again with the next piece
    bytes.remove_prefix(at + 1);
  }
  return pieces.put(bytes) && pieces.flush();
}

bool writeUnencoded(std::string_view bytes, bool dotStuff, const Destination& to) {
  if (!dotStuff || !to.sink) return to.write(bytes);
  ProgressContext unmonitored(nullptr);
  return DotStuffedOutput(*to.sink, to.progress).write(bytes, unmonitored, to.log);
}

}  // namespace mailtree
