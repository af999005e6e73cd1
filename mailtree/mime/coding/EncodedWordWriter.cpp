// Writes encoded words: chooses the text to encode and splits it into words that fit a line.
#include <array>
#include <cstdint>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/LineLengths.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/charset/WrittenCharset.h"
#include "mailtree/mime/coding/Base64.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"

namespace mailtree {

namespace {

constexpr std::size_t kMaxWord = 75;          // RFC 2047, 2
constexpr std::size_t kWidestCharacter = 12;  // four bytes in Q
constexpr std::size_t kMaxRawToken = 900;     // longer ones could not be folded
constexpr std::size_t kMaxRawBlanks = 16;     // longer runs would not survive trimming relays
constexpr std::string_view kHexDigits = "0123456789ABCDEF";

/// Characters allowed unescaped in a Q word anywhere (RFC 2047, 5, rule 3).
constexpr bool isPlainInQ(char c) noexcept {
  return isAlnumAscii(c) || c == '!' || c == '*' || c == '+' || c == '-' || c == '/';
}

std::size_t payloadSize(std::string_view bytes, WordEncoding words) noexcept {
  if (words == WordEncoding::b) return base64::encodedSize(bytes.size(), 0);
  std::size_t size = 0;
  for (const char c : bytes) size += isPlainInQ(c) || c == ' ' ? 1 : 3;
  return size;
}

void appendQ(std::string_view bytes, std::string& out) {
  for (const char c : bytes) {
    if (isPlainInQ(c)) {
      out += c;
    } else if (c == ' ') {
      out += '_';
    } else {
      out += '=';
      out += kHexDigits[static_cast<unsigned char>(c) >> 4];
      out += kHexDigits[static_cast<unsigned char>(c) & 15];
    }
  }
}

void appendB(std::string_view bytes, std::string& out) {
  const std::size_t before = out.size();
  out.resize(before + base64::encodedSize(bytes.size(), 0));
  base64::encode(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), out.data() + before, 0);
}

std::size_t trailingBlanks(std::string_view text) noexcept {
  std::size_t count = 0;
  while (count < kMaxRawBlanks && text.size() > count && isBlankAscii(text[text.size() - count - 1])) ++count;
  return count;
}

class WordWriter {
 public:
  WordWriter(std::string_view text, const HeaderEncoding& encoding)
      : m_text(text), m_codePage(usableCodePage(text, encoding.codePage)), m_words(encoding.words) {
    const std::string_view charset =
        m_codePage == kCpUtf8 ? std::string_view("utf-8") : charsetNameOf(m_codePage);
    m_prefix.append("=?").append(charset).append(m_words == WordEncoding::b ? "?B?" : "?Q?");
  }

  void write(std::size_t column, std::string& out) {
    const std::size_t frame = m_prefix.size() + 2;
    const std::size_t full = kMaxWord - frame;
    // When not even one character fits, the line will be folded at the blanks before the word.
    const bool fits = column + frame + kWidestCharacter <= kMaxLineWithWord;
    const std::size_t begin = fits ? column : trailingBlanks(out);
    std::size_t room = std::min(full, kMaxLineWithWord - begin - frame);
    while (!m_text.empty()) {
      writeWord(fittingPrefix(room), out);
      if (!m_text.empty()) out += ' ';
      room = full;
    }
  }

 private:
  static int usableCodePage(std::string_view text, int wanted) {
    const int codePage = codePageToWrite(writableCodePage(wanted), text);
    if (codePage == kCpUtf8) return codePage;
    std::string scratch;
    return encodeFromUtf8(codePage, text, scratch) ? codePage : kCpUtf8;
  }

  std::string_view bytesOf(std::string_view text) {
    if (m_codePage == kCpUtf8) return text;
    m_scratch.clear();
    encodeFromUtf8(m_codePage, text, m_scratch);
    return m_scratch;
  }

  /// Size of the longest prefix of whole characters, at least one, whose payload fits. A binary search,
  /// because the size of an encoding with escapes is not the sum over its characters.
  std::size_t fittingPrefix(std::size_t room) {
    std::array<std::size_t, kMaxWord + 1> ends{};
    std::size_t count = 0;
    for (std::size_t at = 0; at < m_text.size() && count < room;) {
      nextCodePoint(m_text, at);
      ends[count++] = at;
    }
    std::size_t low = 1, high = count;
    while (low < high) {
      const std::size_t middle = (low + high + 1) / 2;
      if (payloadSize(bytesOf(m_text.substr(0, ends[middle - 1])), m_words) <= room)
        low = middle;
      else
        high = middle - 1;
    }
    return ends[low - 1];
  }

  void writeWord(std::size_t size, std::string& out) {
    const std::string_view bytes = bytesOf(m_text.substr(0, size));
    out += m_prefix;
    if (m_words == WordEncoding::b)
      appendB(bytes, out);
    else
      appendQ(bytes, out);
    out += "?=";
    m_text.remove_prefix(size);
  }

  std::string_view m_text;
  int m_codePage;
  WordEncoding m_words;
  std::string m_prefix;
  std::string m_scratch;
};

bool needsEncoding(std::string_view token) noexcept {
  if (token.size() > kMaxRawToken || mayHoldEncodedWord(token)) return true;
  for (const char c : token)
    if (is8bit(c) || isControlAscii(c)) return true;
  return false;
}

/// Renders a text token by token. Tokens that need no encoding pass with the blanks before
/// them. Adjacent tokens that need it are collected with the blanks between them, which
/// would be lost between two encoded words.
class UnstructuredWriter {
 public:
  /// @param decodes  Whether encoded words in the text are decoded before they
  ///                 are encoded with their neighbours.
  UnstructuredWriter(std::string_view text, const HeaderEncoding& encoding, std::size_t column, bool decodes)
      : m_text(text), m_encoding(encoding), m_column(column), m_decodes(decodes) {}

  std::string write() {
    for (std::size_t at = 0; at < m_text.size();) {
      const std::size_t token = endOfRun(at, true);
      const std::size_t end = endOfRun(token, false);
      if (token - at > kMaxRawBlanks && end > token) {
        addToken(at, at + 1, token - 1, true);
        at = token - 1;
      }
      addToken(at, token, end, needsEncoding(m_text.substr(token, end - token)));
      at = end;
    }
    flush();
    return std::move(m_out);
  }

 private:
  std::size_t endOfRun(std::size_t at, bool ofBlanks) const noexcept {
    while (at < m_text.size() && isBlankAscii(m_text[at]) == ofBlanks) ++at;
    return at;
  }

  void addToken(std::size_t blanks, std::size_t begin, std::size_t end, bool encode) {
    if (encode && m_pendingEnd > m_pendingBegin) {
      m_pendingEnd = end;
      return;
    }
    flush();
    m_out.append(m_text, blanks, begin - blanks);
    m_column += begin - blanks;
    if (encode) {
      m_pendingBegin = begin;
      m_pendingEnd = end;
      return;
    }
    m_out.append(m_text, begin, end - begin);
    m_column += end - begin;
    if (m_column > kPreferredLine) m_column = end - blanks;
  }

  void flush() {
    if (m_pendingEnd == m_pendingBegin) return;
    const std::size_t before = m_out.size();
    const std::string_view run = m_text.substr(m_pendingBegin, m_pendingEnd - m_pendingBegin);
    if (m_decodes && mayHoldEncodedWord(run))
      appendEncodedWords(decodeEncodedWords(run), m_encoding, m_column, m_out);
    else
      appendEncodedWords(run, m_encoding, m_column, m_out);
    const std::size_t lastBlank = m_out.find_last_of(' ');
    const bool isOneWord = lastBlank == std::string::npos || lastBlank < before;
    m_column = isOneWord ? m_column + m_out.size() - before : m_out.size() - lastBlank;
    if (m_column > kMaxLineWithWord) m_column = m_out.size() - before + 1;
    m_pendingBegin = m_pendingEnd = 0;
  }

  std::string_view m_text;
  const HeaderEncoding& m_encoding;
  std::size_t m_column;
  bool m_decodes;
  std::size_t m_pendingBegin = 0;
  std::size_t m_pendingEnd = 0;
  std::string m_out;
};

struct CodePageRange {
  int first, last;
};

constexpr CodePageRange kBase64Pages[] = {
    {874, 874},   {932, 932},     {936, 936},     {949, 950},     {1200, 1201},   {1256, 1256},
    {1361, 1361}, {20866, 20866}, {21866, 21866}, {28596, 28596}, {50001, 64999},
};

}  // namespace

void appendEncodedWords(std::string_view utf8, const HeaderEncoding& encoding, std::size_t column,
                        std::string& out) {
  WordWriter(utf8, encoding).write(column, out);
}

std::string encodeUnstructured(std::string_view utf8, const HeaderEncoding& encoding, std::size_t column) {
  if (containsBreak(utf8)) return encodeUnstructured(withoutBreaks(utf8), encoding, column);
  return UnstructuredWriter(utf8, encoding, column, /*decodes=*/false).write();
}

std::string encodeStructured(std::string_view utf8, const HeaderEncoding& encoding, std::size_t column) {
  return UnstructuredWriter(utf8, encoding, column, /*decodes=*/true).write();
}

WordEncoding preferredWordEncoding(int codePage) noexcept {
  for (const CodePageRange& range : kBase64Pages)
    if (codePage >= range.first && codePage <= range.last) return WordEncoding::b;
  return WordEncoding::q;
}

}  // namespace mailtree
