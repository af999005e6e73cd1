// email/output/unencoded.h - output destinations, and writing bytes without a transfer encoding.
#pragma once

#include <string_view>

#include "mailtree/base/Output.h"

namespace mailtree {

/// A sink or, when that is null, a text to append to.
struct Destination {
  StringBuffer& text;
  _svOutput* sink;
  ProgressContext& progress;
  LogBase& log;

  bool write(std::string_view bytes) const {
    return sink ? sink->write(bytes, progress, log) : text.append(bytes);
  }
};

/// Writes to another sink and doubles every "." that begins a line (RFC 5321, 4.5.2), also across writes. A
/// line begins at the start and after LF. Memory use is bounded.
class DotStuffedOutput final : public _svOutput {
 public:
  /// Both are borrowed. `progress` is for the sink; callers of write() pass one without a monitor.
  DotStuffedOutput(_svOutput& sink, ProgressContext& progress) noexcept
      : m_sink(sink), m_progress(progress) {}

 protected:
  bool put(std::string_view bytes, LogBase& log) override;

 private:
  _svOutput& m_sink;
  ProgressContext& m_progress;
  bool m_atLineBegin = true;
};

/// Writes bytes without a transfer encoding. With `dotStuff`, and only to a sink, every "." that begins a
/// line is doubled.
bool writeUnencoded(std::string_view bytes, bool dotStuff, const Destination& to);

}  // namespace mailtree
