#include "cli/merging/row_files.h"

#include "cli/support/errors.h"
#include "cli/writing/files.h"
#include "mailtree/base/Ascii.h"

namespace mailtree::cli {

std::optional<std::string> RowFiles::setColumns(const CsvTable& table,
                                                const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const auto column = table.columnOf(name);
    if (!column) return name;
    m_columns.push_back(*column);
  }
  return std::nullopt;
}

std::optional<RowProblem> RowFiles::problemOf(const CsvRow& row) const {
  for (const std::size_t column : m_columns) {
    const std::string argument(trim(row[column]));
    if (argument.empty()) continue;
    if (const auto problem = problemOfAttachment(argument))
      return RowProblem{row.lineOf(column), argument + ": " + *problem};
  }
  return std::nullopt;
}

bool RowFiles::attachTo(Email2& email, const CsvRow& row) const {
  LogMemory log;
  for (const std::size_t column : m_columns) {
    const std::string argument(trim(row[column]));
    if (argument.empty()) continue;
    AttachedFile file;
    if (readAttachedFile(argument, file) != Exit::fine) return false;
    if (attach(email, file, log)) continue;
    reportError(argument, lastError(log, "could not be attached"));
    return false;
  }
  return true;
}

}  // namespace mailtree::cli
