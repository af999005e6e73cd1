#include "cli/support/json_text.h"

#include <array>
#include <cstdio>

#include "mailtree/base/Search.h"
#include "mailtree/base/ShownText.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

void appendUnit(std::string& out, char16_t unit) {
  std::array<char, 8> escape{};
  std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(unit));
  out += escape.data();
}

/// The letter after the backslash; 0 for a character without a short form.
char letterOfEscape(char c) {
  switch (c) {
    case '"':
    case '\\': return c;
    case '\b': return 'b';
    case '\f': return 'f';
    case '\n': return 'n';
    case '\r': return 'r';
    case '\t': return 't';
    default: return 0;
  }
}

/// Whether a byte is written as it is.
constexpr std::array<bool, 256> kIsPlain = [] {
  std::array<bool, 256> isPlain{};
  for (unsigned c = ' '; c < 0x7F; ++c) isPlain[c] = c != '"' && c != '\\';
  return isPlain;
}();

/// The first byte that is not, at or after a place; the size of the text when there is none.
std::size_t findSpecial(std::string_view text, std::size_t from) {
  constexpr std::size_t kFew = 16;
  if (text.size() - from >= kFew) return findUnprintable<'"', '\\'>(text, from);
  while (from < text.size() && kIsPlain[static_cast<unsigned char>(text[from])]) ++from;
  return from;
}

/// Whether two bytes are a letter from U+00C0 to U+02FF, which are all harmless.
bool isLatinLetter(std::string_view bytes) {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  return lead >= 0xC3 && lead <= 0xCB && bytes.size() > 1 &&
         (static_cast<unsigned char>(bytes[1]) & 0xC0) == 0x80;
}

void appendEscape(std::string& out, char32_t c) {
  if (c < 0x10000) return appendUnit(out, static_cast<char16_t>(c));
  appendUnit(out, static_cast<char16_t>(0xD7C0 + (c >> 10)));  // a surrogate pair
  appendUnit(out, static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
}

}  // namespace

void appendEscaped(std::string& out, std::string_view text) {
  std::size_t done = 0;  // end of what is already in `out`
  for (std::size_t at = 0; (at = findSpecial(text, at)) < text.size();) {
    if (isLatinLetter(text.substr(at))) {
      at += 2;
      continue;
    }
    const std::size_t begin = at;
    if (const char letter = letterOfEscape(text[at])) {
      const char escape[] = {'\\', letter};
      out.append(text, done, begin - done).append(escape, sizeof escape);
      done = ++at;
      continue;
    }
    const char32_t c = nextCodePoint(text, at);
    if (c >= 0x80 && c != kReplacementCharacter && isHarmless(c)) continue;
    out.append(text, done, begin - done);
    c == kReplacementCharacter ? appendUtf8(out, c) : appendEscape(out, c);
    done = at;
  }
  out.append(text, done);
}

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  appendEscaped(out, text);
  out += '"';
}

std::string quotedText(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  appendQuoted(out, text);
  return out;
}

void ObjectText::addKey(std::string_view key) {
  if (m_text.size() > 1) m_text += ',';
  m_text.append("\"").append(key).append("\":");
}

ObjectText& ObjectText::add(std::string_view key, std::string_view text) {
  addKey(key);
  appendQuoted(m_text, text);
  return *this;
}

ObjectText& ObjectText::add(std::string_view key, std::int64_t number) {
  addKey(key);
  m_text += std::to_string(number);
  return *this;
}

ObjectText& ObjectText::addOrNull(std::string_view key, std::string_view text) {
  return text.empty() ? addSerialized(key, "null") : add(key, text);
}

ObjectText& ObjectText::addIs(std::string_view key, bool is) {
  return addSerialized(key, is ? "true" : "false");
}

ObjectText& ObjectText::addSerialized(std::string_view key, std::string_view json) {
  begin(key) += json;
  return *this;
}

std::string& ObjectText::begin(std::string_view key) {
  addKey(key);
  return m_text;
}

ObjectText& ObjectText::addMembers(std::string_view object) {
  if (object.size() <= 2) return *this;
  if (m_text.size() > 1) m_text += ',';
  m_text += object.substr(1, object.size() - 2);
  return *this;
}

void ListText::addComma() {
  if (!isEmpty()) m_text += ',';
}

ListText& ListText::add(std::string_view text) {
  addComma();
  appendQuoted(m_text, text);
  return *this;
}

ListText& ListText::addSerialized(std::string_view json) {
  addComma();
  m_text += json;
  return *this;
}

}  // namespace mailtree::cli
