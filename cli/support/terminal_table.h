// cli/support/terminal_table.h - plain-text tables.
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

/// Columns are as wide as their widest cell, up to a limit; a wider cell shifts the rest of its row.
class Table {
 public:
  /// The first row holds the titles.
  explicit Table(std::vector<Column> columns);
  /// Adds a row of one string per column, already printable and without gaps that look like column breaks.
  void add(std::vector<std::string> cells);
  /// Writes to standard output. On a terminal long lines are cut: a wrapped one could pass for another row.
  void write(std::ostream& out) const;

 private:
  std::vector<std::size_t> widths() const;

  std::vector<Column> m_columns;
  std::vector<std::vector<std::string>> m_rows;
};

}  // namespace mailtree::cli
