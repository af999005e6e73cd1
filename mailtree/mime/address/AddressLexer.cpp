#include "mailtree/mime/address/AddressLexer.h"

#include <algorithm>
#include <array>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"
#include "mailtree/mime/Limits.h"

namespace mailtree {
namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

constexpr bool isSpecial(char c) noexcept {
  return c == '<' || c == '>' || c == ',' || c == ';' || c == ':' || c == '@';
}

constexpr bool isBlankOrNul(char c) noexcept { return isSpaceAscii(c) || c == '\0'; }

/// By byte: whether it ends a word.
constexpr std::array<bool, 256> kEndsWord = [] {
  std::array<bool, 256> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    const char c = static_cast<char>(i);
    table[i] = isBlankOrNul(c) || isSpecial(c) || c == '"' || c == '(';
  }
  return table;
}();

bool endsWord(char c) noexcept { return kEndsWord[static_cast<unsigned char>(c)]; }

constexpr bool isDropped(char c) noexcept { return c == '\r' || c == '\n' || c == '\0'; }

// Where the comment that begins at `open` ends; parentheses nested deeper than `depthLimit`
// are ordinary characters.
std::size_t commentEnd(std::string_view text, std::size_t open, int depthLimit) noexcept {
  int depth = 0;
  for (std::size_t i = open; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '(') {
      if (depth < depthLimit) ++depth;
    } else if (text[i] == ')' && --depth == 0) {
      return i;
    }
  }
  return kNowhere;
}

// Length of the encoded word at the beginning of the text, 0 when there is none. It may contain blanks,
// commas and other characters that are not allowed in one, which are then no structure, but no angle
// brackets. The search stops where the next word would begin, so no byte is examined twice.
std::size_t encodedWordLength(std::string_view text) noexcept {
  if (!text.starts_with("=?")) return 0;
  const std::size_t charsetEnd = text.find_first_of("? \t\r\n()<>@,;:\"/[]=", 2);
  if (charsetEnd == kNowhere || charsetEnd == 2 || charsetEnd + 2 >= text.size()) return 0;
  const char encoding = toUpperAscii(text[charsetEnd + 1]);
  const bool isHead =
      text[charsetEnd] == '?' && (encoding == 'Q' || encoding == 'B') && text[charsetEnd + 2] == '?';
  if (!isHead) return 0;
  for (std::size_t i = charsetEnd + 3; i + 1 < text.size(); ++i) {
    if (text[i] == '<' || text[i] == '>') return 0;
    if (text[i] == '?' && text[i + 1] == '=') return i + 2;
    const bool nextBegins =
        text[i] == '=' && text[i + 1] == '?' && (i + 2 >= text.size() || text[i + 2] != '=');
    if (nextBegins) return 0;
  }
  return 0;
}

// Length of the domain literal at the beginning of the text, such as "[192.0.2.1]", 0 when there is none.
std::size_t domainLiteralLength(std::string_view text) noexcept {
  if (!text.starts_with('[')) return 0;
  const std::size_t end = text.find_first_of("[]<>,;\" \t\r\n", 1);
  return end == kNowhere || text[end] != ']' ? 0 : end + 1;
}

}  // namespace

AddressToken AddressLexer::next() noexcept {
  using Kind = AddressToken::Kind;
  while (m_position < m_text.size()) {
    const char c = m_text[m_position];
    if (c == '(') {
      const std::size_t close = closingParenthesis();
      if (close == kNowhere) return take(Kind::word, wordEnd() - m_position);
      const AddressToken comment = takeDelimited(Kind::comment, close);
      m_afterBlank = true;
      return comment;
    }
    if (c == '"') {
      const std::size_t close = closingQuote();
      if (close != kNowhere) return takeDelimited(Kind::quoted, close);
    } else if (!isBlankOrNul(c)) {
      return isSpecial(c) ? take(Kind::special, 1) : take(Kind::word, wordEnd() - m_position);
    }
    m_afterBlank = true;
    ++m_position;
  }
  return {};
}

std::optional<PlainMailbox> AddressLexer::nextMailbox() noexcept {
  const std::optional<PlainMailbox> mailbox =
      readPlainMailbox(m_text.substr(m_position), /*quotes=*/!m_noMoreQuotes);
  if (!mailbox) return std::nullopt;
  m_position += mailbox->size;
  m_afterBlank = m_afterAt = false;
  return mailbox;
}

AddressToken AddressLexer::take(AddressToken::Kind kind, std::size_t size) noexcept {
  const AddressToken token{kind, m_text.substr(m_position, size), m_afterBlank};
  m_position += size;
  m_afterBlank = false;
  m_afterAt = token.is('@');
  return token;
}

AddressToken AddressLexer::takeDelimited(AddressToken::Kind kind, std::size_t close) noexcept {
  AddressToken token = take(kind, close + 1 - m_position);
  token.text = token.text.substr(1, token.text.size() - 2);
  return token;
}

std::size_t AddressLexer::closingQuote() noexcept {
  if (m_noMoreQuotes) return kNowhere;
  for (std::size_t i = m_position + 1; i < m_text.size(); ++i) {
    if (m_text[i] == '"') return i;
    if (m_text[i] == '\\') ++i;
  }
  m_noMoreQuotes = true;
  return kNowhere;
}

std::size_t AddressLexer::closingParenthesis() noexcept {
  if (m_noMoreComments) return kNowhere;
  if (!m_noMoreNesting) {
    const std::size_t end = commentEnd(m_text, m_position, kMaxCommentDepth);
    if (end != kNowhere) return end;
    m_noMoreNesting = true;
  }
  const std::size_t end = commentEnd(m_text, m_position, 1);
  if (end == kNowhere) m_noMoreComments = true;
  return end;
}

std::size_t AddressLexer::wordEnd() const noexcept {
  std::size_t end = m_position;
  if (m_afterAt) end += domainLiteralLength(m_text.substr(end));
  if (end == m_position && m_text[end] == '(') ++end;
  while (end < m_text.size() && !endsWord(m_text[end])) {
    const std::size_t encodedWord = m_text[end] == '=' ? encodedWordLength(m_text.substr(end)) : 0;
    end += std::max<std::size_t>(1, encodedWord);
  }
  return end;
}

bool isAtomCharacter(char c) noexcept {
  return isAlnumAscii(c) || is8bit(c) || std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != kNowhere;
}

bool isBareLocalPart(std::string_view text) noexcept {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c == '.' || isAtomCharacter(c); });
}

bool isInQuotes(std::string_view text) noexcept {
  return text.size() > 2 && text.front() == '"' && text.find('"', 1) == text.size() - 1;
}

void appendUnescaped(std::string_view inside, std::string& out) {
  if (findAny<'\\', '\r', '\n', '\0'>(inside) == inside.size()) {
    out.append(inside);
    return;
  }
  for (std::size_t i = 0; i < inside.size(); ++i) {
    if (inside[i] == '\\' && i + 1 < inside.size()) ++i;
    if (!isDropped(inside[i])) out.push_back(inside[i]);
  }
}

void appendQuotedString(std::string_view text, std::string& out) {
  out.push_back('"');
  for (const char c : text) {
    if (isDropped(c)) continue;
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
}

}  // namespace mailtree
