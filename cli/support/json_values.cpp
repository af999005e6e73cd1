#include "cli/support/json_values.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "cli/support/terminal.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {
namespace {

void appendUnit(std::string& out, char16_t unit) {
  std::array<char, 8> escape{};
  std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(unit));
  out += escape.data();
}

void appendEscape(std::string& out, char32_t c) {
  if (c < 0x10000) return appendUnit(out, static_cast<char16_t>(c));
  appendUnit(out, static_cast<char16_t>(0xD7C0 + (c >> 10)));  // a surrogate pair
  appendUnit(out, static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
}

bool isUnescaped(char c) noexcept { return c >= ' ' && c < '\x7F' && c != '"' && c != '\\'; }

}  // namespace

Json objectOf(std::initializer_list<Member> members) {
  Json::object_t object;
  object.reserve(members.size());
  for (const Member& member : members) object.emplace_back(member.key, std::move(member.value));
  return object;
}

Json textOrNull(std::string_view text) { return text.empty() ? Json() : Json(text); }

Json addressOf(const _svEmailAddress& address) {
  return objectOf({{"name", address.m_name.view()}, {"address", address.m_address.view()}});
}

Json addressOrNull(const std::optional<_svEmailAddress>& address) {
  return address ? addressOf(*address) : Json();
}

Json dateOrNull(const std::optional<SorvikSysTime>& date) { return date ? Json(timeText(*date)) : Json(); }

Json limitsOf(LimitSet limits) {
  Json out = Json::array();
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit)) out.push_back(row.text());
  return out;
}

void ObjectText::addKey(std::string_view key) {
  if (m_text.size() > 1) m_text += ',';
  m_text.append("\"").append(key).append("\":");
}

ObjectText& ObjectText::add(std::string_view key, std::string_view text) {
  addKey(key);
  if (std::ranges::all_of(text, isUnescaped))
    m_text.append("\"").append(text).append("\"");
  else
    m_text += textOf(Json(text));
  return *this;
}

ObjectText& ObjectText::add(std::string_view key, std::uint64_t number) {
  addKey(key);
  m_text += std::to_string(number);
  return *this;
}

ObjectText& ObjectText::addOrNull(std::string_view key, std::string_view text) {
  return text.empty() ? addSerialized(key, "null") : add(key, text);
}

ObjectText& ObjectText::addSerialized(std::string_view key, std::string_view json) {
  addKey(key);
  m_text += json;
  return *this;
}

ObjectText& ObjectText::addMembers(std::string_view object) {
  if (m_text.size() > 1) m_text += ',';
  m_text += object.substr(1, object.size() - 2);
  return *this;
}

std::string textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

/// JSON allows DEL, the C1 controls and direction overrides; a terminal may obey them.
std::string lineOf(std::string text) {
  std::string out;
  std::size_t done = 0;  // end of what is already in `out`
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] >= ' ' && text[at] < '\x7F') {  // the common case
      ++at;
      continue;
    }
    const std::size_t begin = at;
    const char32_t c = nextCodePoint(text, at);
    if (isHarmless(c) || c == kReplacementCharacter) continue;
    out.append(text, done, begin - done);
    appendEscape(out, c);
    done = at;
  }
  if (done == 0) return text;
  return out.append(text, done);
}

std::string lineOf(const Json& json) { return lineOf(textOf(json)); }

}  // namespace mailtree::cli
