// cli/support/terminal.h - what may reach a terminal, and how it looks there.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace mailtree::cli {

/// The text as one harmless line: control characters, line breaks, what is not harmless otherwise, and malformed
/// bytes become U+FFFD, a tab becomes a space. Whoever wrote a mail does not get to drive the reader's terminal.
std::string printable(std::string_view text);

/// The same for a text of several lines, which stay lines (each ends in LF); tabs stay too.
std::string printableLines(std::string_view text);

/// The same as one word that cannot be taken for ours: in quotes, with a backslash before what could end them, and
/// without a character that could be a bracket of ours.
std::string inQuotes(std::string_view text);
/// As it is when it is one word of ASCII without any punctuation that we use, such as an address or a media type;
/// else in quotes.
std::string wordOrQuoted(std::string_view text);
/// As it is when it cannot be taken for more than one cell of a table; else in quotes.
std::string cellOrQuoted(std::string_view text);
/// One harmless line without a gap that could be taken for one between cells.
std::string singleSpaced(std::string_view text);

/// Begins every line that the message itself says, and none of ours.
inline constexpr std::string_view kSaid = "> ";

/// Writes a text of several lines to standard output: as it is, unless that is a terminal.
void writeGuarded(std::string_view text);

/// Whether a character is drawn in its place and does nothing else to a terminal: no control character, no
/// direction override, no invisible mark.
bool isHarmless(char32_t c);

/// "980 B", "1.2 kB", "34 MB": powers of 1000, two digits where they tell something.
std::string humanSize(std::uint64_t bytes);

/// Columns a text takes on a terminal: combining marks none, East Asian wide characters and emoji two.
std::size_t displayWidth(std::string_view utf8);

/// The longest beginning that fits in so many columns.
std::string_view fitWidth(std::string_view utf8, std::size_t columns);

/// The same, for terminals that may draw a character wider than others do.
std::size_t greatestWidth(std::string_view utf8);
std::string_view fitSurely(std::string_view utf8, std::size_t columns);

enum class Ink { plain, faint, bold, type, body, attachment, warning };

/// Writes one line, made harmless. Where a terminal of so many columns would break it, it is broken before, at a blank
/// if there is one, and goes on after the indent, which is at least as wide as the head: what a terminal breaks begins
/// where our own lines do. 0 columns: there is no terminal.
void writeLine(std::ostream& out, std::size_t columns, std::string_view head, std::string_view indent,
               std::string_view text);
/// The same on standard output, indented as wide as the head.
void writeLine(std::string_view head, std::string_view text);

/// How to draw: colours and line-drawing characters, or plain ASCII.
struct Style {
  bool colour = false;
  bool lines = false;
  std::size_t columns = 0;  ///< Of the terminal; 0: there is none.

  /// Writes text in an ink; without colour just the text.
  std::string paint(Ink ink, std::string_view text) const;
};

enum class ColourChoice { automatic, always, never };

/// Style for standard output: lines only on a terminal, colour too unless NO_COLOR is set; a choice on the
/// command line wins.
Style styleOfStandardOutput(ColourChoice choice);

bool standardOutputIsTerminal();
/// Of the terminal, if standard output is one; else 0.
std::size_t standardOutputColumns();
/// Whether a path leads to a terminal, such as /dev/tty or /dev/stdout may.
bool leadsToTerminal(const std::string& path);

}  // namespace mailtree::cli
