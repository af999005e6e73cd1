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

void appendEscape(std::string& out, char32_t c) {
  switch (c) {
    case '"': out += "\\\""; return;
    case '\\': out += "\\\\"; return;
    case '\b': out += "\\b"; return;
    case '\f': out += "\\f"; return;
    case '\n': out += "\\n"; return;
    case '\r': out += "\\r"; return;
    case '\t': out += "\\t"; return;
    default: break;
  }
  if (c < 0x10000) return appendUnit(out, static_cast<char16_t>(c));
  appendUnit(out, static_cast<char16_t>(0xD7C0 + (c >> 10)));  // a surrogate pair
  appendUnit(out, static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
}

}  // namespace

void appendEscaped(std::string& out, std::string_view text) {
  std::size_t done = 0;  // end of what is already in `out`
  for (std::size_t at = 0; (at = findUnprintable<'"', '\\'>(text, at)) < text.size();) {
    const std::size_t begin = at;
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
