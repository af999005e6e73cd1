// Folding of header lines (RFC 5322, 2.2.3): a line break is inserted before existing white space, so
// unfolding gives the same value.
#include "mailtree/base/Ascii.h"
#include "mailtree/mime/LineLengths.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"

namespace mailtree {

namespace {

constexpr std::size_t npos = std::string_view::npos;
/// A longer run of blanks could only be folded into a blank line, which some programs take for the
/// end of the header.
constexpr std::size_t kMaxBlankRun = 500;

class Folder {
 public:
  explicit Folder(std::string_view line) : m_line(line) { m_out.reserve(line.size() + line.size() / 16); }

  std::string fold() {
    const std::size_t colon = m_line.find(':');
    for (std::size_t at = colon == npos ? 0 : colon + 1; at < m_line.size(); ++at) {
      if (!isBlankAscii(m_line[at])) {
        trackQuotes(at);
        continue;
      }
      endPiece(at);
      addPlace(at, at == colon + 1);
      while (at + 1 < m_line.size() && isBlankAscii(m_line[at + 1])) ++at;
      m_piece = at + 1;
    }
    endPiece(m_line.size());
    m_out += m_line.substr(m_begin);
    return std::move(m_out);
  }

 private:
  void trackQuotes(std::size_t& at) noexcept {
    if (m_line[at] == '"') m_inQuotes = !m_inQuotes;
    if (m_line[at] == '\\' && m_inQuotes && at + 1 < m_line.size() && !isBlankAscii(m_line[at + 1])) ++at;
  }

  void addPlace(std::size_t at, bool isAfterColon) noexcept {
    (isAfterColon ? m_afterColon : m_inQuotes ? m_quoted : m_plain) = at;
  }

  void endPiece(std::size_t end) {
    if (mayHoldEncodedWord(m_line.substr(m_piece, end - m_piece))) m_lastWord = m_piece;
    foldToFit(end);
  }

  std::size_t limit() const noexcept {
    return m_lastWord != npos && m_lastWord >= m_begin ? kMaxLineWithWord : kPreferredLine;
  }

  /// Folds until the text up to `end` fits, where folding is possible.
  void foldToFit(std::size_t end) {
    while (end - m_begin > limit()) {
      const std::size_t place = findFoldPosition(end);
      if (place == npos) break;
      breakAt(place);
    }
    while (end - m_begin >= kLongestLine) forceBreak();
  }

  std::size_t findFoldPosition(std::size_t end) const noexcept {
    if (isUsable(m_plain)) return m_plain;
    if (isUsable(m_quoted)) return m_quoted;
    // A first line with only the name confuses many programs: done only when it helps.
    const bool helps =
        isUsable(m_afterColon) && (end - m_afterColon <= limit() || end - m_begin > kLongestLine);
    return helps ? m_afterColon : npos;
  }

  bool isUsable(std::size_t place) const noexcept { return place != npos && place > m_begin; }

  void breakAt(std::size_t place) {
    m_out.append(m_line, m_begin, place - m_begin).append("\r\n");
    m_begin = place;
  }

  /// No place to fold: the line is cut, but not inside a utf-8 character, and a blank is added.
  void forceBreak() {
    std::size_t size = kLongestLine - 1;  // a blank already precedes the text cut last time
    while (size > kLongestLine - 4 && (static_cast<unsigned char>(m_line[m_begin + size]) & 0xC0) == 0x80)
      --size;
    breakAt(m_begin + size);
    m_out += ' ';
  }

  std::string_view m_line;
  std::string m_out;
  std::size_t m_begin = 0;        ///< Of the current output line.
  std::size_t m_piece = 0;        ///< Beginning of the current text without blanks.
  std::size_t m_lastWord = npos;  ///< Beginning of the last piece with an encoded word.
  std::size_t m_plain = npos;
  std::size_t m_quoted = npos;
  std::size_t m_afterColon = npos;
  bool m_inQuotes = false;
};

bool hasLongBlankRun(std::string_view line) noexcept {
  std::size_t run = 0;
  for (const char c : line) {
    run = isBlankAscii(c) ? run + 1 : 0;
    if (run > kMaxBlankRun) return true;
  }
  return false;
}

std::string withShortBlankRuns(std::string_view line) {
  std::string out;
  std::size_t run = 0;
  for (const char c : line) {
    run = isBlankAscii(c) ? run + 1 : 0;
    if (run <= kMaxBlankRun) out += c;
  }
  return out;
}

}  // namespace

std::string foldHeaderLine(std::string_view line) {
  if (containsBreak(line)) return foldHeaderLine(withoutBreaks(line));
  line = trimRight(line);
  const bool fits = line.size() <= kMaxLineWithWord || !mayHoldEncodedWord(line);
  if (fits && line.size() <= kPreferredLine) return std::string(line);
  if (hasLongBlankRun(line)) return Folder(withShortBlankRuns(line)).fold();
  return Folder(line).fold();
}

}  // namespace mailtree
