// cli/merging/row_files.h - files that the rows of a table name, to be attached to their messages.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/merging/template.h"

namespace mailtree::cli {

class RowFiles {
 public:
  /// Finds the columns; returns the first name that is not a column, or nothing.
  std::optional<std::string> setColumns(const CsvTable& table, const std::vector<std::string>& names);
  /// Checks that the files of a row can be read.
  std::optional<RowProblem> problemOf(const CsvRow& row) const;
  /// Attaches the files of a row; a field without text names none. False after reporting an error.
  bool attachTo(Email2& email, const CsvRow& row) const;

 private:
  std::vector<std::size_t> m_columns;
};

}  // namespace mailtree::cli
