// store/mbox_quoting.h - lines of a message that look like separators, and the end of a message. Private.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mailtree {

/// Appends a message as an entry of an mboxrd: separator, message, empty line.
/// @param sender  replaced by MAILER-DAEMON unless it is one word.
void appendMboxEntry(std::string_view message, std::string_view sender, std::chrono::sys_seconds date,
                     std::string& out);

/// Removes one ">" from each line that begins with ">", more of them or not, and "From ".
void unquoteLines(std::string& message) noexcept;

/// Size without the empty line that separates the message from the next; LF or CRLF.
std::size_t sizeWithoutEmptyLine(std::string_view message) noexcept;

/// What the header of a message says about its length.
struct MboxHeader {
  std::size_t size = std::string_view::npos;     ///< With the empty line after it; npos when there is none.
  bool hasLength = false;                        ///< There is a Content-Length.
  std::optional<std::uint64_t> contentLength{};  ///< Its value if it is a number.
};
MboxHeader readMboxHeader(std::string_view message) noexcept;

}  // namespace mailtree
