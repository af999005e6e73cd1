#include "mailtree/mime/FlowedText.h"

#include <algorithm>
#include <cstddef>

#include "mailtree/base/TextWidth.h"

namespace mailtree {
namespace {

constexpr std::string_view kSignature = "-- ";
constexpr std::size_t kColumns = 78;
/// Lines quoted more often are not broken: each new line would repeat all of the marks.
constexpr std::size_t kDeepestWrapped = 40;

/// Removes a line from the front of a text, its line break too.
/// @param hasBreak  receives whether there was one.
std::string_view takeLine(std::string_view& text, bool& hasBreak) {
  const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  hasBreak = end < text.size();
  text.remove_prefix(end);
  if (hasBreak) text.remove_prefix(text.starts_with("\r\n") ? 2 : 1);
  return line;
}

std::size_t quoteDepth(std::string_view line) { return std::min(line.find_first_not_of('>'), line.size()); }

std::string_view withoutBlanksAtEnd(std::string_view line) {
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

/// Joins lines to paragraphs.
class Paragraphs {
 public:
  explicit Paragraphs(bool delSp) : m_delSp(delSp) {}

  void add(std::string_view line, bool hasBreak) {
    const std::size_t depth = quoteDepth(line);
    line.remove_prefix(depth);
    if (line.starts_with(' ')) line.remove_prefix(1);
    const bool isSignature = line == kSignature;
    if (m_isOpen && (depth != m_depth || isSignature || line.empty())) end();
    if (!m_isOpen) begin(depth, /*isText=*/!line.empty());
    const bool isFlowed = line.ends_with(' ') && !isSignature && hasBreak;
    m_isOpen = isFlowed;
    if (isFlowed && m_delSp) line.remove_suffix(1);
    m_text += line;
    if (hasBreak && !isFlowed) m_text += '\n';
  }

  std::string finish() && {
    if (m_isOpen) end();
    return std::move(m_text);
  }

 private:
  void begin(std::size_t depth, bool isText) {
    m_depth = depth;
    m_text.append(depth, '>');
    if (depth > 0 && isText) m_text += ' ';
  }

  /// Ends a paragraph whose last line announced another one.
  void end() {
    m_text.resize(withoutBlanksAtEnd(m_text).size());
    m_text += '\n';
    m_isOpen = false;
  }

  std::string m_text;
  bool m_delSp;
  bool m_isOpen = false;  ///< The last line was flowed.
  std::size_t m_depth = 0;
};

/// Writes one line as flowed lines.
class LineWrapper {
 public:
  LineWrapper(std::string& out, std::string_view line) : m_out(out), m_rest(line) {
    // ">text" is no quotation here: unwrapping would give "> text".
    const std::size_t depth = quoteDepth(line);
    if (depth == 0 || (depth < line.size() && line[depth] != ' ')) return;
    m_quote = line.substr(0, depth);
    m_rest.remove_prefix(std::min(depth + 1, line.size()));
  }

  void write() {
    if (m_rest != kSignature) m_rest = withoutBlanksAtEnd(m_rest);
    while (!isLast()) {
      writePiece(m_rest.substr(0, pieceLength()));
      m_out += '\n';
    }
    writePiece(m_rest);
  }

 private:
  std::string_view prefix() const {
    if (!m_quote.empty()) return m_rest.empty() ? "" : " ";
    const bool needsStuffing =
        m_rest.starts_with(' ') || m_rest.starts_with('>') || m_rest.starts_with("From ");
    return needsStuffing ? " " : "";
  }

  std::size_t room() const {
    const std::size_t taken = m_quote.size() + prefix().size();
    return taken < kColumns ? kColumns - taken : 0;
  }

  bool isLast() const { return m_rest == kSignature || pieceLength() == m_rest.size(); }

  /// Up to the last blank that fits, or else the first one. Not an indent alone, and not what would be taken
  /// for a signature separator.
  std::size_t pieceLength() const {
    const std::string_view fitting = fitWidth(m_rest, room());
    if (fitting.size() == m_rest.size() || m_quote.size() > kDeepestWrapped) return m_rest.size();
    const std::size_t indent = std::min(m_rest.find_first_not_of(' '), m_rest.size());
    std::size_t end = fitting.rfind(' ');
    if (end == std::string_view::npos || end < indent)
      end = m_rest.find(' ', std::max(indent, fitting.size()));
    if (end == 2 && m_rest.starts_with(kSignature)) end = m_rest.find(' ', 3);
    return end == std::string_view::npos ? m_rest.size() : end + 1;
  }

  void writePiece(std::string_view piece) {
    m_out.append(m_quote).append(prefix()).append(piece);
    m_rest.remove_prefix(piece.size());
  }

  std::string& m_out;
  std::string_view m_quote, m_rest;
};

}  // namespace

std::string unwrapFlowed(std::string_view text, bool delSp) {
  Paragraphs paragraphs(delSp);
  bool hasBreak = false;
  while (!text.empty()) {
    const std::string_view line = takeLine(text, hasBreak);
    paragraphs.add(line, hasBreak);
  }
  return std::move(paragraphs).finish();
}

std::string wrapFlowed(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 32);
  bool hasBreak = false;
  while (!text.empty()) {
    LineWrapper(out, takeLine(text, hasBreak)).write();
    if (hasBreak) out += '\n';
  }
  return out;
}

}  // namespace mailtree
