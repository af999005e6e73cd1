// mime/html/TextLines.h - puts words on lines, with the prefixes of quotes and lists; not included outside
// mime/html/.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

/// Lines of plain text. Never more than one empty line in a row, none at the ends, no blanks at line ends.
class TextLines {
 public:
  /// Appends visible text without white space, after the spaces that are due.
  void append(std::string_view text);
  /// A space is due before further text on this line.
  void space();
  /// White space that is kept as it is, also at the begin of a line.
  void keptSpace(char space);
  /// A non-breaking space: a line with nothing else is kept, as an empty one.
  void noBreakSpace();
  /// Appends a mark such as "[1]" after the last text.
  void appendMark(std::string_view mark);

  void endLine();
  /// Ends this line, or makes an empty one.
  void lineBreak();
  /// Ends this line; an empty one is due before further text, but for the first text of a list item.
  void endParagraph();
  /// Ends this line; a non-breaking space does not make an empty one.
  void endCell();
  /// No empty line is due any more.
  void closeUp() noexcept { m_isEmptyLineDue = false; }

  /// Begins lines with a prefix from now on, within the prefixes so far; nested too deeply, it is not shown.
  /// @param marker  for the first line, as long as `prefix`, which is for all others. Both ASCII.
  void openBlock(std::string_view marker, std::string_view prefix);
  std::size_t openBlocks() const noexcept { return m_blocks.size(); }
  void closeBlocks(std::size_t remaining);

  /// @name Finished lines, for tables @{
  std::size_t size() const noexcept { return m_lines.size(); }
  std::size_t prefixSize() const noexcept { return m_prefix.size(); }
  bool isOpen() const noexcept { return m_isOpen; }
  /// A line without the first bytes of its prefix; empty for an empty line.
  std::string_view line(std::size_t index, std::size_t prefixSize) const noexcept;
  /// Replaces the lines from `first` on by others, which get the current prefix.
  void replaceFrom(std::size_t first, const std::vector<std::string>& lines);
  /// @}

  std::string finish() &&;

 private:
  struct Line {
    std::size_t begin = 0, end = 0;  ///< In m_text.
    bool isEmpty = false;            ///< Only a prefix.
  };
  struct Block {
    std::string marker;
    bool isMarkerDue = true;
    std::size_t end = 0;  ///< Of its prefix, in m_prefix.
  };

  void beginLine();
  void appendEmptyLine(std::size_t prefixSize);

  std::string m_text;
  std::vector<Line> m_lines;
  std::vector<Block> m_blocks;
  std::string m_prefix;
  std::string m_dueSpace;
  std::size_t m_commonPrefix = 0;  ///< Of the last line and all since.
  bool m_isOpen = false;
  bool m_isEmptyLineDue = false;
  bool m_hasNoBreakSpace = false;
};

}  // namespace mailtree
