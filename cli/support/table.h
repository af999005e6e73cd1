// cli/support/table.h - rows of cells in columns, for people.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace mailtree::cli {

struct Column {
  const char* title;
  bool rightAligned = false;
};

/// Columns are as wide as their widest cell, up to a limit: a wider cell pushes what follows out of its column.
class Table {
 public:
  /// Begins with the titles.
  explicit Table(std::vector<Column> columns);
  /// One text for each column, printable already and without a gap that could be taken for one between columns.
  void add(std::vector<std::string> cells);
  /// To standard output. On a terminal, what does not fit into its line is cut: broken off, it could be taken for
  /// another row.
  void write(std::ostream& out) const;

 private:
  std::vector<std::size_t> widths() const;

  std::vector<Column> m_columns;
  std::vector<std::vector<std::string>> m_rows;
};

}  // namespace mailtree::cli
