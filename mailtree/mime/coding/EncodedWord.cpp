// Reads encoded words. The scanner examines every byte a bounded number of times: a failed search for the end
// of a word is remembered, not repeated for every later "=?".
#include "mailtree/mime/coding/EncodedWord.h"

#include <algorithm>
#include <cstdint>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/Base64.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/coding/QuotedPrintable.h"

namespace mailtree {

namespace {

constexpr std::size_t npos = std::string_view::npos;

/// Far above any registered charset name; longer text is not an encoded word.
constexpr std::size_t kMaxCharsetLabel = 64;

struct Word {
  std::size_t begin;
  std::size_t end;
  std::string_view charset;
  std::string_view payload;
  bool isBase64;
};

constexpr bool isCharsetChar(char c) noexcept { return c > ' ' && c < 0x7F && c != '?' && c != '='; }

class WordScanner {
 public:
  explicit WordScanner(std::string_view text) noexcept : m_text(text) {}

  /// The next well-formed word; false when there is none left.
  bool next(Word& word) noexcept {
    while ((m_at = m_text.find("=?", m_at)) != npos) {
      word.begin = m_at;
      m_at += 2;
      if (readWord(word)) return true;
    }
    return false;
  }

 private:
  /// Reads the text after "=?" at m_at. Leaves m_at after the word, or where the
  /// search for the next one should begin.
  bool readWord(Word& word) noexcept {
    if (!readCharset(word) || !readEncoding(word)) return false;
    std::size_t end = terminatorFrom(m_at);
    if (end == npos) return false;
    // An unterminated word must not swallow the next one. Checked before the search for the end goes further:
    // otherwise all unterminated words would each search up to the same far end.
    if (const std::size_t inner = m_text.substr(m_at, end - m_at).find("=?"); inner != npos) {
      m_at += inner;
      return false;
    }
    if (!word.isBase64)
      while (isBareQuestionMark(end)) end = m_text.find("?=", end + 2);
    word.payload = m_text.substr(m_at, end - m_at);
    m_at = word.end = end + 2;
    return true;
  }

  bool readCharset(Word& word) noexcept {
    std::size_t end = m_at;
    const std::size_t limit = std::min(m_text.size(), m_at + kMaxCharsetLabel);
    while (end < limit && isCharsetChar(m_text[end])) ++end;
    if (end == m_at || end >= m_text.size() || m_text[end] != '?') return false;
    word.charset = m_text.substr(m_at, end - m_at);
    word.charset = word.charset.substr(0, word.charset.find('*'));  // RFC 2231, 5: a language may follow
    m_at = end + 1;
    return true;
  }

  bool readEncoding(Word& word) noexcept {
    if (m_at + 1 >= m_text.size() || m_text[m_at + 1] != '?') return false;
    const char letter = toLowerAscii(m_text[m_at]);
    if (letter != 'b' && letter != 'q') return false;
    word.isBase64 = letter == 'b';
    m_at += 2;
    return true;
  }

  /// Whether "?=" in a Q payload is an unescaped question mark followed by an escape: more of the word must
  /// follow, and no other word before its end.
  bool isBareQuestionMark(std::size_t end) const noexcept {
    if (end + 3 >= m_text.size() || hexValue(m_text[end + 2]) < 0 || hexValue(m_text[end + 3]) < 0)
      return false;
    const std::size_t later = m_text.find("?=", end + 2);
    return later != npos && !contains(m_text.substr(end + 2, later - end - 2), "=?");
  }

  std::size_t terminatorFrom(std::size_t from) noexcept {
    if (from < m_searchedFrom || from > m_terminator || !m_searched) {
      m_terminator = m_text.find("?=", from);
      m_searchedFrom = from;
      m_searched = true;
    }
    return m_terminator;
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  std::size_t m_searchedFrom = 0;
  std::size_t m_terminator = 0;  ///< First "?=" at or after m_searchedFrom.
  bool m_searched = false;
};

void appendPayload(const Word& word, std::string& out) {
  if (!word.isBase64) return quotedPrintable::decodeQ(word.payload, out);
  const std::size_t before = out.size();
  out.resize(before + base64::decodedCapacity(word.payload.size()));
  const std::size_t size = base64::decode(word.payload, reinterpret_cast<std::uint8_t*>(out.data()) + before);
  out.resize(before + size);
}

/// Collects the bytes of adjacent words of one charset and converts them together.
class WordJoiner {
 public:
  explicit WordJoiner(std::string& out) noexcept : m_out(out) {}

  void add(const Word& word, int codePage) {
    if (codePage != m_codePage) flush();
    m_codePage = codePage;
    if (word.isBase64 || isAscii(word.payload) || !isValidUtf8(word.payload))
      appendPayload(word, m_bytes);
    else
      addUnescaped8bit(word.payload);
  }

  /// Joins the payloads of words with an unknown charset, which are utf-8.
  void addUtf8(std::string_view bytes) {
    if (m_codePage != kCpUtf8) flush();
    m_codePage = kCpUtf8;
    m_bytes += bytes;
  }

  void flush() {
    if (!m_bytes.empty()) appendBytesAsUtf8(m_codePage, m_bytes, m_out);
    m_bytes.clear();
  }

 private:
  /// A Q payload with unescaped 8-bit text. That text is already utf-8, whatever the charset of the word.
  void addUnescaped8bit(std::string_view payload) {
    for (std::size_t at = 0; at < payload.size();) {
      const bool isText = is8bit(payload[at]);
      std::size_t end = at;
      while (end < payload.size() && is8bit(payload[end]) == isText) ++end;
      if (isText) flush();
      if (isText)
        m_out += payload.substr(at, end - at);
      else
        quotedPrintable::decodeQ(payload.substr(at, end - at), m_bytes);
      at = end;
    }
  }

  std::string& m_out;
  std::string m_bytes;
  int m_codePage = 0;
};

void blankOutBreaks(std::string& text) noexcept {
  if (!containsBreak(text)) return;
  for (char& c : text)
    if (c == '\r' || c == '\n' || c == '\0') c = ' ';
}

}  // namespace

std::string decodeEncodedWords(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  WordScanner scanner(value);
  WordJoiner joiner(out);
  Word word{};
  std::size_t done = 0;  // everything before is in `out` or in the joiner
  for (bool found = scanner.next(word); found;) {
    const Word first = word;
    const int codePage = codePageOfCharset(first.charset);
    std::string unknown;  // payloads of words with an unknown charset, joined before they are judged
    std::size_t end = 0;
    do {
      if (codePage <= 0) appendPayload(word, unknown);
      end = word.end;
      found = scanner.next(word);
    } while (codePage <= 0 && found && word.charset == first.charset &&
             trim(value.substr(end, word.begin - end)).empty());
    if (codePage <= 0 && !isValidUtf8(unknown)) continue;  // they stay encoded

    const std::string_view gap = value.substr(done, first.begin - done);
    const bool isBetweenWords = done > 0 && trim(gap).empty();
    if (!isBetweenWords) {
      joiner.flush();
      out += gap;
    }
    if (codePage > 0)
      joiner.add(first, codePage);
    else
      joiner.addUtf8(unknown);
    done = end;
  }
  joiner.flush();
  out += value.substr(done);
  blankOutBreaks(out);
  return out;
}

}  // namespace mailtree
