#include "mailtree/mime/html/TextTable.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/TextWidth.h"

namespace mailtree {
namespace {

constexpr std::size_t kColumns = 78;       // Of all of a table.
constexpr std::size_t kGap = 2;            // Between columns.
constexpr std::size_t kLabel = 32;         // The widest cell that others of its row may follow on a line.
constexpr std::size_t kMostLines = 400;    // Of a small table.
constexpr std::size_t kMostCells = 2000;   // The same.
constexpr std::size_t kMostColumns = 16;   // The same.
constexpr std::size_t kMostBroken = 6;     // Columns of a table that are broken to fit.
constexpr std::size_t kDeepestInside = 2;  // Tables inside tables that are still read as one.

std::size_t totalWidth(const std::vector<std::size_t>& widths) {
  std::size_t total = 0, used = 0;
  for (const std::size_t width : widths) {
    total += width;
    used += width > 0;
  }
  return used > 0 ? total + (used - 1) * kGap : 0;
}

/// Makes the widest columns narrower until all fit.
void fitColumns(std::vector<std::size_t>& widths) {
  while (totalWidth(widths) > kColumns) {
    const auto widest = std::max_element(widths.begin(), widths.end());
    std::size_t next = 0;
    for (const std::size_t width : widths)
      if (width < *widest) next = std::max(next, width);
    const std::size_t excess = totalWidth(widths) - kColumns;
    const auto count = static_cast<std::size_t>(std::count(widths.begin(), widths.end(), *widest));
    const std::size_t less = std::min(*widest - next, std::max<std::size_t>(1, excess / count));
    std::replace(widths.begin(), widths.end(), std::size_t{*widest}, *widest - less);
  }
}

/// Breaks a line at its blanks where possible.
void appendBroken(std::vector<std::string_view>& pieces, std::string_view line, std::size_t width) {
  while (true) {
    const std::string_view fitting = fitWidth(line, width);
    if (fitting.size() == line.size()) break;
    std::size_t end = fitting.size();
    if (line[end] != ' ') end = std::min(fitting.rfind(' '), fitting.size());
    const bool isIndent = trim(line.substr(0, end)).empty();  // the word after it is too long
    if (isIndent) end = std::max(fitting.size(), fitWidth(line, 2).size());
    if (end == 0) break;
    pieces.push_back(trimRight(line.substr(0, end)));
    line = trimLeft(line.substr(end));
  }
  pieces.push_back(line);
}

}  // namespace

void TextTable::beginRow() {
  if (m_column == 0 && m_cells.empty()) return;
  ++m_row;
  m_column = 0;
  for (std::size_t& rows : m_rowSpans) rows -= rows > 0;
}

void TextTable::beginCell(const TextLines& lines, std::size_t columns, std::size_t rows) {
  if (m_cells.size() > kMostCells || m_column > kMostColumns) return;  // no small table any more
  while (m_column < m_rowSpans.size() && m_rowSpans[m_column] > 0) ++m_column;
  columns = std::clamp<std::size_t>(columns, 1, kMostColumns);
  m_cells.push_back({m_row, m_column, columns, lines.size(), lines.size()});
  for (; columns > 0; --columns, ++m_column) {
    if (rows > 1) {
      m_rowSpans.resize(std::max(m_rowSpans.size(), m_column + 1));
      m_rowSpans[m_column] = rows;
    }
  }
  m_isInCell = true;
}

void TextTable::endCell(const TextLines& lines) {
  if (m_isInCell) m_cells.back().endLine = lines.size();
  m_isInCell = false;
}

void TextTable::addInner(const TextTable& inner) noexcept { m_depth = std::max(m_depth, inner.m_depth + 1); }

// All lines must be in cells: what is elsewhere would be lost.
bool TextTable::isSmall(const TextLines& lines) const noexcept {
  if (m_depth > kDeepestInside || m_cells.size() > kMostCells || lines.size() - m_firstLine > kMostLines)
    return false;
  std::size_t next = m_firstLine;
  for (const Cell& cell : m_cells) {
    if (cell.firstLine != next || cell.column + cell.span > kMostColumns) return false;
    next = cell.endLine;
  }
  return next == lines.size();
}

/// Leaves out cells without text, and empty lines at the ends of the others.
std::vector<TextTable::Row> TextTable::rowsWithText(const TextLines& lines) {
  std::vector<Row> rows;
  std::size_t last = 0;
  for (Cell& cell : m_cells) {
    const auto isEmpty = [&](std::size_t line) { return lines.line(line, m_prefix).empty(); };
    for (; cell.firstLine < cell.endLine && isEmpty(cell.firstLine); ++cell.firstLine)
      cell.hasSpaceAbove = true;
    while (cell.firstLine < cell.endLine && isEmpty(cell.endLine - 1)) --cell.endLine;
    if (cell.firstLine == cell.endLine) continue;
    if (rows.empty() || last != cell.row) rows.emplace_back();
    rows.back().cells.push_back(&cell);
    last = cell.row;
  }
  return rows;
}

/// Natural widths; cells over several columns and those alone in their row do not count.
std::vector<std::size_t> TextTable::columnWidths(const std::vector<Row>& rows, const TextLines& lines) const {
  std::vector<std::size_t> widths(kMostColumns);
  for (const Row& row : rows) {
    if (row.cells.size() < 2) continue;
    for (const Cell* const cell : row.cells) {
      std::size_t& width = widths[cell->column];
      for (std::size_t line = cell->firstLine; line < cell->endLine && cell->span == 1; ++line)
        width = std::max(width, displayWidth(lines.line(line, m_prefix)));
    }
  }
  return widths;
}

std::vector<std::string> TextTable::inColumns(const std::vector<Row>& rows,
                                              const std::vector<std::size_t>& widths,
                                              const TextLines& lines) const {
  std::vector<std::string> out;
  for (const Row& row : rows) {
    const bool isAlone = row.cells.size() < 2;
    if (row.cells.front()->hasSpaceAbove && isAlone && !out.empty()) out.emplace_back();
    const std::size_t firstOut = out.size();
    std::size_t column = 0, indent = 0;
    for (const Cell* const cell : row.cells) {
      for (; column < cell->column; ++column)
        if (widths[column] > 0) indent += widths[column] + kGap;
      std::vector<std::string_view> pieces;
      for (std::size_t line = cell->firstLine; line < cell->endLine; ++line) {
        const std::string_view text = lines.line(line, m_prefix);
        const bool isBroken = !isAlone && cell->span == 1;
        appendBroken(pieces, text, isBroken ? std::max<std::size_t>(widths[column], 1) : text.size() * 2);
      }
      if (out.size() < firstOut + pieces.size()) out.resize(firstOut + pieces.size());
      for (std::size_t i = 0; i < pieces.size(); ++i) {
        std::string& line = out[firstOut + i];
        if (pieces[i].empty()) continue;
        const std::size_t width = displayWidth(line);
        if (!isAlone || indent + displayWidth(pieces[i]) <= kColumns)
          line.append(width < indent ? indent - width : (width > 0 ? kGap : 0), ' ');
        line += pieces[i];
      }
    }
  }
  return out;
}

/// Every cell on lines of its own, but those of one line after short ones.
std::vector<std::string> TextTable::inLines(const std::vector<Row>& rows, const TextLines& lines) const {
  std::vector<std::string> out;
  for (const Row& row : rows) {
    bool mayFollow = false;
    for (const Cell* const cell : row.cells) {
      const bool isOneLine = cell->endLine - cell->firstLine == 1;
      if (cell->hasSpaceAbove && !out.empty() && !(mayFollow && isOneLine)) out.emplace_back();
      for (std::size_t line = cell->firstLine; line < cell->endLine; ++line) {
        const std::string_view text = lines.line(line, m_prefix);
        if (mayFollow && isOneLine)
          out.back().append(kGap, ' ').append(text);
        else
          out.emplace_back(text);
      }
      mayFollow = isOneLine && displayWidth(out.back()) <= kLabel;
    }
  }
  return out;
}

bool TextTable::finish(TextLines& lines) {
  if (!isSmall(lines)) return false;
  const std::vector<Row> rows = rowsWithText(lines);
  std::vector<std::size_t> widths = columnWidths(rows, lines);
  const auto isUsed = [](std::size_t width) { return width > 0; };
  const auto used = static_cast<std::size_t>(std::count_if(widths.begin(), widths.end(), isUsed));
  if (used < 2) return false;
  const bool fits = totalWidth(widths) <= kColumns;
  if (!fits && m_isData && used <= kMostBroken) fitColumns(widths);
  const bool isInColumns = totalWidth(widths) <= kColumns;
  std::vector<std::string> out = isInColumns ? inColumns(rows, widths, lines) : inLines(rows, lines);
  const bool isSetApart = isInColumns && rows.size() > 1;
  const bool isAfterText = m_firstLine > 0 && !lines.line(m_firstLine - 1, m_prefix).empty();
  if (isAfterText && (isSetApart || lines.line(m_firstLine, m_prefix).empty()))
    out.insert(out.begin(), std::string());
  lines.replaceFrom(m_firstLine, out);
  return isSetApart;
}

}  // namespace mailtree
