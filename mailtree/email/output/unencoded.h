// email/output/unencoded.h - where output goes, and bytes written there as they are.
#pragma once

#include <string_view>

#include "mailtree/base/Output.h"

namespace mailtree {

/// A sink, or without one a text that is appended to.
struct Destination {
  StringBuffer& text;
  _svOutput* sink;
  ProgressContext& progress;
  LogBase& log;

  bool write(std::string_view bytes) const {
    return sink ? sink->write(bytes, progress, log) : text.append(bytes);
  }
};

/// Passes everything on to another sink and doubles every "." that begins a line (RFC 5321, 4.5.2), in any piece
/// that is written. A line begins at the start and after LF. Memory stays bounded.
class DotStuffedOutput final : public _svOutput {
 public:
  /// Both are borrowed. The progress is that of the sink; whoever writes here passes one without a monitor.
  DotStuffedOutput(_svOutput& sink, ProgressContext& progress) noexcept
      : m_sink(sink), m_progress(progress) {}

 protected:
  bool put(std::string_view bytes, LogBase& log) override;

 private:
  _svOutput& m_sink;
  ProgressContext& m_progress;
  bool m_atLineBegin = true;
};

/// Writes bytes without a transfer encoding. With `dotStuff`, and only to a sink, every "." that begins a line is
/// doubled on the way.
bool writeUnencoded(std::string_view bytes, bool dotStuff, const Destination& to);

}  // namespace mailtree
