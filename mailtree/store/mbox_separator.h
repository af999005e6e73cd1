// store/mbox_separator.h - the lines that separate the messages of an mbox. Private.
//
//   Judging    A line is judged by itself, the line before it and the one after it, wherever reading began,
//              so all who read a part of a file find the same messages.
//   Certain    "From SENDER Sat Nov 21 08:30:00 2026", with or without seconds and zone. Some writers leave
//              out the empty line before it, so none is needed.
//   Likely     Other forms that programs wrote: only after an empty line and before a header field.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>

namespace mailtree {

struct Separator {
  std::string_view sender{};  ///< Empty when there is none, or "-".
  std::optional<std::chrono::sys_seconds> date{};
  /// A zone of "+0000" or "-0000" after the year, as no program but ours writes it with a purpose: the lines
  /// of the message are quoted, and a Content-Length in its header means nothing.
  bool isQuoted = false;
  bool addsLineEnd = false;  ///< "-0000": the message has no line end of its own at its end.
  std::size_t size = 0;      ///< Of the line with its end.
};

/// Bytes from the beginning of a line that are enough to judge it.
inline constexpr std::size_t kJudgedBytes = 1200;
/// Bytes before it that tell whether there is an empty line.
inline constexpr std::size_t kBytesBefore = 3;

/// Whether the text ends with an empty line, or is empty.
bool endsWithEmptyLine(std::string_view text) noexcept;

/// Reads a separator line.
/// @param text  begins with the line and has kJudgedBytes, or what there is to the end of the file.
std::optional<Separator> readSeparator(std::string_view text, bool isAfterEmptyLine);
/// The same for the first line of a file, where anything that begins with "From " is one. Size 0 when it
/// does not.
Separator readFirstLine(std::string_view text);

}  // namespace mailtree
