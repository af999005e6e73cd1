// Writes one parameter: bare, quoted, or by RFC 2231 in as many sections as lines of 78 characters need.
#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/LineLengths.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/charset/WrittenCharset.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/header/HeaderParams.h"
#include "mailtree/mime/header/Token.h"

namespace mailtree {

namespace {

constexpr std::size_t kMaxSection =
    kPreferredLine - 3;  // "name*N*=value", with a blank before it and a ";" after it
constexpr std::size_t kMaxFallback = 120;
constexpr std::string_view kHexDigits = "0123456789ABCDEF";

/// RFC 2231, 7
constexpr bool isAttributeChar(char c) noexcept {
  return isTokenChar(c) && c != '*' && c != '\'' && c != '%';
}

template <class Predicate>
bool allOf(std::string_view text, Predicate predicate) noexcept {
  for (const char c : text)
    if (!predicate(c)) return false;
  return true;
}

/// Whether the value reads back from a token or a quoted string unchanged. Encoded words are
/// not decoded in a boundary.
bool isPlain(std::string_view name, std::string_view value) noexcept {
  const auto isPrintable = [](char c) { return !is8bit(c) && !isControlAscii(c); };
  const bool mayBeDecoded = mayHoldEncodedWord(value) && !equalsNoCase(name, "boundary");
  return value.size() <= kMaxPlainParameter && !mayBeDecoded && allOf(value, isPrintable);
}

void appendTokenOrQuoted(std::string_view value, std::string& out) {
  // A single quote at both ends would be read as quoting.
  if (!value.empty() && value.front() != '\'' && allOf(value, isTokenChar)) {
    out += value;
    return;
  }
  out += '"';
  for (const char c : value) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

/// Base letters of U+00C0 to U+00FF.
constexpr std::string_view kLatinBase = "AAAAAAACEEEEIIIIDNOOOOOxOUUUUYTsaaaaaaaceeeeiiiidnooooo-ouuuuyty";
static_assert(kLatinBase.size() == 0x40);

/// The value for programs without RFC 2231: base letters, "_" for other characters.
std::string asciiFallback(std::string_view value) {
  std::string out;
  for (std::size_t at = 0; at < value.size() && out.size() < kMaxFallback;) {
    const char32_t c = nextCodePoint(value, at);
    const bool isPrintable = c >= 0x20 && c < 0x7F && c != '"' && c != '\\' && c != '?';
    char letter = '_';
    if (isPrintable) letter = static_cast<char>(c);
    if (c >= 0xC0 && c <= 0xFF) letter = kLatinBase[c - 0xC0];
    if (letter != '_' || !out.ends_with('_')) out += letter;
  }
  return out;
}

/// Appends the sections "; name*0*=charset''...; name*1*=...", or "; name*=..." when one is enough.
class ExtendedWriter {
 public:
  ExtendedWriter(std::string_view name, std::string_view value, int codePage)
      : m_name(name), m_value(value), m_codePage(usableCodePage(value, codePage)) {}

  void write(std::string& out) {
    m_section = m_codePage == kCpUtf8 ? "utf-8" : std::string(charsetNameOf(m_codePage));
    m_section += "''";
    for (std::size_t at = 0; at < m_value.size();) {
      appendEscaped(nextCharacter(at));
      if (m_name.size() + numberSize() + m_section.size() + m_escaped.size() > kMaxSection) endSection(out);
      m_section += m_escaped;
    }
    if (m_count == 0)
      out.append("; ").append(m_name).append("*=").append(m_section);
    else
      endSection(out);
  }

 private:
  static int usableCodePage(std::string_view value, int wanted) {
    const int codePage = codePageToWrite(writableCodePage(wanted), value);
    if (codePage == kCpUtf8 || isStatefulCodePage(codePage)) return kCpUtf8;
    std::string scratch;
    return encodeFromUtf8(codePage, value, scratch) ? codePage : kCpUtf8;
  }

  std::string_view nextCharacter(std::size_t& at) {
    const std::size_t begin = at;
    nextCodePoint(m_value, at);
    const std::string_view character = m_value.substr(begin, at - begin);
    if (m_codePage == kCpUtf8) return character;
    m_encoded.clear();
    encodeFromUtf8(m_codePage, character, m_encoded);
    return m_encoded;
  }

  void appendEscaped(std::string_view bytes) {
    m_escaped.clear();
    for (const char c : bytes) {
      if (isAttributeChar(c)) {
        m_escaped += c;
        continue;
      }
      m_escaped += '%';
      m_escaped += kHexDigits[static_cast<unsigned char>(c) >> 4];
      m_escaped += kHexDigits[static_cast<unsigned char>(c) & 15];
    }
  }

  std::size_t numberSize() const { return std::to_string(m_count).size() + 3; }

  void endSection(std::string& out) {
    out.append("; ")
        .append(m_name)
        .append("*")
        .append(std::to_string(m_count++))
        .append("*=")
        .append(m_section);
    m_section.clear();
  }

  std::string_view m_name;
  std::string_view m_value;
  int m_codePage;
  int m_count = 0;
  std::string m_section;
  std::string m_escaped;
  std::string m_encoded;
};

}  // namespace

void appendParam(std::string_view name, std::string_view value, int codePage, bool withFallback,
                 std::string& out) {
  if (name.empty() || !allOf(name, isTokenChar)) return;
  if (containsBreak(value)) {
    std::string clean(value);
    eraseBreaks(clean);
    appendParam(name, clean, codePage, withFallback, out);
    return;
  }
  if (isPlain(name, value)) {
    out.append("; ").append(name).append("=");
    appendTokenOrQuoted(value, out);
    return;
  }
  // The RFC 2231 value comes first: of two values with one name many programs take the first.
  ExtendedWriter(name, value, codePage).write(out);
  if (!withFallback) return;
  out.append("; ").append(name).append("=");
  appendTokenOrQuoted(asciiFallback(value), out);
}

}  // namespace mailtree
