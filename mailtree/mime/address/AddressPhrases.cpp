#include "mailtree/mime/address/AddressPhrases.h"

#include <algorithm>
#include <span>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/AddressLexer.h"
#include "mailtree/mime/address/AddressReader.h"

namespace mailtree {
namespace {

using Kind = AddressToken::Kind;
using Tokens = std::span<const AddressToken>;

/// Where words may begin on a folded line: after its blank, or after a parenthesis too.
constexpr std::size_t kFoldedColumn = 1;
constexpr std::size_t kLongestBeforeParenthesis = 73;

bool isWord(const AddressToken& token) noexcept {
  return token.kind == Kind::word || token.kind == Kind::quoted;
}

bool is8bitToken(const AddressToken& token) noexcept { return !isAscii(token.text); }

/// The token with its quotes or parentheses.
std::string_view wholeOf(const AddressToken& token, std::string_view list) noexcept {
  const bool isDelimited = token.kind == Kind::quoted || token.kind == Kind::comment;
  const std::size_t delimiter = isDelimited ? 1 : 0;
  return list.substr(static_cast<std::size_t>(token.text.data() - list.data()) - delimiter,
                     token.text.size() + 2 * delimiter);
}

class PhraseEncoder {
 public:
  PhraseEncoder(std::string_view list, const HeaderEncoding& encoding) : m_list(list), m_encoding(encoding) {
    AddressLexer lexer(list);
    for (AddressToken token = lexer.next(); token.kind != Kind::end; token = lexer.next())
      m_tokens.push_back(token);
  }

  std::string run() {
    bool inAngle = false;
    for (std::size_t at = 0; at < m_tokens.size();) {
      const AddressToken& token = m_tokens[at];
      if (isWord(token)) {
        const std::size_t end = endOfWords(at);
        if (!inAngle) encodeWords(at, end);
        at = end;
        continue;
      }
      if (token.kind == Kind::comment && is8bitToken(token)) encodeComment(token);
      if (token.is('<') || token.is('>')) inAngle = token.is('<');
      ++at;
    }
    return std::move(m_out.append(m_list, m_copied));
  }

 private:
  std::size_t endOfWords(std::size_t at) const noexcept {
    while (at < m_tokens.size() && isWord(m_tokens[at])) ++at;
    return at;
  }

  bool isAt(std::size_t token) const noexcept { return token < m_tokens.size() && m_tokens[token].is('@'); }

  /// A token that touches an "@" is not a name.
  void encodeWords(std::size_t begin, std::size_t end) {
    if (begin > 0 && isAt(begin - 1)) {
      ++begin;
      while (begin < end && !m_tokens[begin].afterBlank) ++begin;
    }
    if (isAt(end)) {
      while (end > begin && !m_tokens[end - 1].afterBlank) --end;
      if (end > begin) --end;
    }
    const Tokens words = Tokens(m_tokens).subspan(begin, end - begin);
    if (std::none_of(words.begin(), words.end(), is8bitToken)) return;
    copyUntil(wholeOf(words.front(), m_list).data());
    if (!m_out.empty() && !isBlankAscii(m_out.back())) m_out += ' ';  // RFC 2047, 5 (3)
    appendEncodedWords(nameOfTokens(words), m_encoding, kFoldedColumn, m_out);
    skip(wholeOf(words.back(), m_list));
    if (m_list.substr(m_copied).starts_with('<') || m_list.substr(m_copied).starts_with('(')) m_out += ' ';
  }

  void encodeComment(const AddressToken& comment) {
    copyUntil(comment.text.data());
    std::string text;
    appendUnescaped(comment.text, text);
    const std::size_t before = m_out.size();
    appendEncodedWords(decodeEncodedWords(text), m_encoding, kFoldedColumn + 1, m_out);
    const std::size_t lastBlank = m_out.rfind(' ');
    const std::size_t lastWord =
        lastBlank == std::string::npos || lastBlank < before ? before : lastBlank + 1;
    if (m_out.size() - lastWord > kLongestBeforeParenthesis) m_out += ' ';  // a place to fold the line
    skip(comment.text);
  }

  void copyUntil(const char* end) { m_out.append(m_list.data() + m_copied, end); }
  void skip(std::string_view piece) noexcept {
    m_copied = static_cast<std::size_t>(piece.data() + piece.size() - m_list.data());
  }

  std::string_view m_list;
  const HeaderEncoding& m_encoding;
  std::vector<AddressToken> m_tokens;
  std::string m_out;
  std::size_t m_copied = 0;  ///< How much of the list was copied or replaced.
};

}  // namespace

std::string encodePhrases(std::string_view list, const HeaderEncoding& encoding) {
  return PhraseEncoder(list, encoding).run();
}

}  // namespace mailtree
