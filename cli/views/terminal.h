// cli/views/terminal.h - what may reach a terminal, and how it looks there.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree::cli {

/// The text as one harmless line: control characters, line breaks, what is not harmless otherwise, and malformed
/// bytes become U+FFFD, a tab becomes a space. Whoever wrote a mail does not get to drive the reader's terminal.
std::string printable(std::string_view text);

/// The same for a text of several lines, which stay lines (each ends in LF); tabs stay too.
std::string printableLines(std::string_view text);

/// Whether a character is drawn in its place and does nothing else to a terminal: no control character, no
/// direction override, no invisible mark.
bool isHarmless(char32_t c);

/// "980 B", "1.2 kB", "34 MB": powers of 1000, two digits where they tell something.
std::string humanSize(std::uint64_t bytes);

/// Columns a text takes on a terminal: combining marks none, East Asian wide characters and emoji two.
std::size_t displayWidth(std::string_view utf8);

/// The longest beginning that fits in so many columns.
std::string_view fitWidth(std::string_view utf8, std::size_t columns);

enum class Ink { plain, faint, bold, type, body, attachment, warning };

/// How to draw: colours and line-drawing characters, or plain ASCII.
struct Style {
  bool colour = false;
  bool lines = false;

  /// Writes text in an ink; without colour just the text.
  std::string paint(Ink ink, std::string_view text) const;
};

enum class ColourChoice { automatic, always, never };

/// Style for standard output: lines only on a terminal, colour too unless NO_COLOR is set; a choice on the
/// command line wins.
Style styleOfStandardOutput(ColourChoice choice);

bool standardOutputIsTerminal();

}  // namespace mailtree::cli
