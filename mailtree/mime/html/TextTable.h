// mime/html/TextTable.h - tables as plain text: columns where they fit, lines otherwise; not included outside
// mime/html/.
#pragma once

#include <cstddef>
#include <vector>

#include "mailtree/mime/html/TextLines.h"

namespace mailtree {

/// A table whose cells have been written as lines, one below the other. Most tables in mail are there for the
/// layout and stay so; small ones are rewritten when they end.
class TextTable {
 public:
  explicit TextTable(const TextLines& lines) : m_firstLine(lines.size()), m_prefix(lines.prefixSize()) {}

  /// The table has data, by its markup: its columns may be broken to fit.
  void setData() noexcept { m_isData = true; }
  void beginRow();
  void beginCell(const TextLines& lines, std::size_t columns, std::size_t rows);
  void endCell(const TextLines& lines);
  /// Rewrites the lines of the table, if it is small.
  /// @return whether they are rows of columns now, to be set apart from what follows.
  bool finish(TextLines& lines);
  /// A table that ended inside this one.
  void addInner(const TextTable& inner) noexcept;

 private:
  struct Cell {
    std::size_t row, column, span;
    std::size_t firstLine, endLine;
    bool hasSpaceAbove = false;
  };
  struct Row {
    std::vector<const Cell*> cells;  ///< Those with text.
  };

  bool isSmall(const TextLines& lines) const noexcept;
  std::vector<Row> rowsWithText(const TextLines& lines);
  std::vector<std::size_t> columnWidths(const std::vector<Row>& rows, const TextLines& lines) const;
  std::vector<std::string> inColumns(const std::vector<Row>& rows, const std::vector<std::size_t>& widths,
                                     const TextLines& lines) const;
  std::vector<std::string> inLines(const std::vector<Row>& rows, const TextLines& lines) const;

  std::size_t m_firstLine, m_prefix;
  std::size_t m_row = 0, m_column = 0;
  std::size_t m_depth = 0;  ///< Of tables inside.
  bool m_isData = false;
  bool m_isInCell = false;
  std::vector<Cell> m_cells;
  std::vector<std::size_t> m_rowSpans;  ///< By column: rows still covered by a cell above.
};

}  // namespace mailtree
