#include "mailtree/mime/html/TextLines.h"

#include <algorithm>
#include <utility>

namespace mailtree {
namespace {

/// Of all prefixes of a line: what is nested deeper is not indented further.
constexpr std::size_t kLongestPrefix = 24;

}  // namespace

void TextLines::append(std::string_view text) {
  if (!m_isOpen) beginLine();
  m_text.append(m_dueSpace).append(text);
  m_dueSpace.clear();
}

void TextLines::space() {
  if (m_isOpen && m_dueSpace.empty()) m_dueSpace = ' ';
}

void TextLines::keptSpace(char space) { m_dueSpace += space; }

void TextLines::noBreakSpace() {
  m_hasNoBreakSpace = true;
  space();
}

void TextLines::appendMark(std::string_view mark) {
  if (m_lines.empty()) return;
  m_text.append(" ").append(mark);
  m_lines.back().end = m_text.size();
}

void TextLines::beginLine() {
  if (m_isEmptyLineDue && !m_lines.empty()) appendEmptyLine(m_commonPrefix);
  m_isEmptyLineDue = m_hasNoBreakSpace = false;
  m_lines.push_back({m_text.size(), m_text.size(), false});
  m_text += m_prefix;
  for (Block& block : m_blocks) {
    const std::size_t size = block.marker.size();
    if (std::exchange(block.isMarkerDue, false))
      m_text.replace(m_lines.back().begin + block.end - size, size, block.marker);
  }
  m_commonPrefix = prefixSize();
  m_isOpen = true;
}

void TextLines::appendEmptyLine(std::size_t prefixSize) {
  const std::size_t begin = m_text.size();
  m_text.append(m_prefix, 0, prefixSize);
  m_lines.push_back({begin, m_text.size(), true});
}

void TextLines::endLine() {
  if (m_isOpen)
    m_lines.back().end = m_text.size();
  else if (m_hasNoBreakSpace)
    m_isEmptyLineDue = true;
  m_dueSpace.clear();
  m_hasNoBreakSpace = m_isOpen = false;
}

void TextLines::lineBreak() {
  if (!m_isOpen) m_isEmptyLineDue = true;
  endLine();
}

void TextLines::endParagraph() {
  endLine();
  if (m_blocks.empty() || !m_blocks.back().isMarkerDue) m_isEmptyLineDue = true;
}

void TextLines::endCell() {
  m_hasNoBreakSpace = false;
  endLine();
}

void TextLines::openBlock(std::string_view marker, std::string_view prefix) {
  endLine();
  if (m_prefix.size() + prefix.size() > kLongestPrefix) return;
  m_prefix += prefix;
  m_blocks.push_back({std::string(marker), marker != prefix, m_prefix.size()});
}

void TextLines::closeBlocks(std::size_t remaining) {
  if (remaining >= m_blocks.size()) return;
  endLine();
  m_blocks.resize(remaining);
  m_prefix.resize(m_blocks.empty() ? 0 : m_blocks.back().end);
  m_commonPrefix = std::min(m_commonPrefix, prefixSize());
}

std::string_view TextLines::line(std::size_t index, std::size_t prefixSize) const noexcept {
  const Line& line = m_lines[index];
  if (line.isEmpty || line.end - line.begin <= prefixSize) return {};
  return std::string_view(m_text).substr(line.begin + prefixSize, line.end - line.begin - prefixSize);
}

void TextLines::replaceFrom(std::size_t first, const std::vector<std::string>& lines) {
  // The marker of a list item, if any, is on the first line with text.
  std::size_t marked = first;
  while (marked < m_lines.size() && m_lines[marked].isEmpty) ++marked;
  const std::size_t common = prefixSize();
  const std::string marker =
      marked < m_lines.size() ? m_text.substr(m_lines[marked].begin, common) : std::string();
  m_lines.resize(first);
  bool isMarkerDue = true;
  for (const std::string& line : lines) {
    if (line.empty()) {
      appendEmptyLine(common);
      continue;
    }
    const std::size_t begin = m_text.size();
    m_text.append(std::exchange(isMarkerDue, false) ? marker : m_prefix).append(line);
    m_lines.push_back({begin, m_text.size(), false});
  }
}

std::string TextLines::finish() && {
  endLine();
  std::string out;
  out.reserve(m_text.size() + m_lines.size());
  for (const Line& line : m_lines) {
    const std::string_view text = std::string_view(m_text).substr(line.begin, line.end - line.begin);
    out.append(text.substr(0, text.find_last_not_of(" \t") + 1)) += '\n';
  }
  return out;
}

}  // namespace mailtree
