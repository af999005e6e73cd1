// cli/support/terminal.h - safe and readable text on a terminal.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "mailtree/base/ShownText.h"
#include "mailtree/base/TextWidth.h"

namespace mailtree::cli {

/// Prefix of lines quoted from the message; no other line begins with it.
inline constexpr std::string_view kMessageLinePrefix = "> ";

/// Writes text to standard output, unchanged unless that is a terminal, which gets printableLines().
void writeHarmless(std::string_view text);

/// "980 B", "1.2 kB", "34 MB": powers of 1000, with one decimal place below 10.
std::string humanSize(std::uint64_t bytes);

enum class Ink { plain, faint, bold, type, body, attachment, warning };

/// Writes one line, made harmless and broken to the terminal's width, at a blank where possible. Continuation
/// lines begin with the indent, which is at least as wide as the prefix; otherwise a continuation could look
/// like a new line of output. 0 columns: no terminal, no breaks.
void writeLine(std::ostream& out, std::size_t columns, std::string_view prefix, std::string_view indent,
               std::string_view text);
/// The same on standard output, with an indent as wide as the prefix.
void writeLine(std::string_view prefix, std::string_view text);

/// Whether to use colors and line-drawing characters, or plain ASCII.
struct Style {
  bool color = false;
  bool lines = false;
  std::size_t columns = 0;  ///< Of the terminal; 0 without one.

  /// Wraps text in the codes of an ink; returns it unchanged without color.
  std::string paint(Ink ink, std::string_view text) const;
};

enum class ColorChoice { automatic, always, never };

/// Style for standard output: line-drawing characters only on a terminal; color too, unless NO_COLOR is set.
/// `choice` overrides color.
Style styleOfStandardOutput(ColorChoice choice);

bool standardOutputIsTerminal();
/// Width of the terminal; 0 when standard output is not one.
std::size_t standardOutputColumns();
/// Whether a path refers to a terminal, as /dev/tty or /dev/stdout may.
bool leadsToTerminal(const std::string& path);

}  // namespace mailtree::cli
