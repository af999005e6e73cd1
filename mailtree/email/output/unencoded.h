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

/// Writes bytes without a transfer encoding. With `dotStuff`, and only to a sink, every "." that begins a
/// line is doubled (RFC 5321, 4.5.2) on the way; memory stays bounded.
bool writeUnencoded(std::string_view bytes, bool dotStuff, const Destination& to);

}  // namespace mailtree
