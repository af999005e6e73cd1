#include "cli/support/terminal_table.h"

#include <algorithm>
#include <utility>

#include "cli/support/terminal.h"
#include "mailtree/base/Ascii.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kMaxColumnWidth = 40;

std::string cutTo(std::string_view text, std::size_t columns) {
  constexpr std::string_view kCut = "...";
  if (maxDisplayWidth(text) <= columns) return std::string(text);
  return std::string(fitMaxWidth(text, columns - kCut.size())).append(kCut);
}

}  // namespace

Table::Table(std::vector<Column> columns) : m_columns(std::move(columns)) {
  std::vector<std::string> titles;
  for (const Column& column : m_columns) titles.emplace_back(column.title);
  m_rows.push_back(std::move(titles));
}

void Table::add(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }

void Table::write(std::ostream& out) const {
  const std::vector<std::size_t> widths = this->widths();
  const std::size_t terminalWidth = standardOutputColumns();
  for (const std::vector<std::string>& cells : m_rows) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::string padding(widths[i] - std::min(displayWidth(cells[i]), widths[i]), ' ');
      if (i > 0) line += "  ";
      const std::string cell = terminalWidth == 0
                                   ? cells[i]
                                   : cutTo(cells[i], i + 1 < cells.size() ? kMaxColumnWidth : terminalWidth);
      line += m_columns[i].rightAligned ? padding + cell : cell + padding;
    }
    out << (terminalWidth == 0 ? trimRight(line) : cutTo(trimRight(line), terminalWidth)) << '\n';
  }
}

std::vector<std::size_t> Table::widths() const {
  std::vector<std::size_t> widths(m_columns.size());
  for (const std::vector<std::string>& cells : m_rows)
    for (std::size_t i = 0; i < cells.size(); ++i)
      widths[i] = std::max(widths[i], std::min(displayWidth(cells[i]), kMaxColumnWidth));
  return widths;
}

}  // namespace mailtree::cli
