// base/UnixLines.h - texts with LF as line breaks.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// The text with LF as line breaks: CRLF, LF and a bare CR each end a line.
std::string withUnixLines(std::string_view text);

}  // namespace mailtree
