#include "cli/support/json_text.h"

#include <array>
#include <bit>
#include <cstdio>
#include <cstring>

#include "mailtree/base/Search.h"
#include "mailtree/base/ShownText.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

/// The letter after the backslash; 0 for a character without a short form.
constexpr std::array<char, 256> kEscapeLetters = [] {
  std::array<char, 256> letters{};
  for (const char c : {'"', '\\'}) letters[static_cast<unsigned char>(c)] = c;
  letters['\b'] = 'b';
  letters['\f'] = 'f';
  letters['\n'] = 'n';
  letters['\r'] = 'r';
  letters['\t'] = 't';
  return letters;
}();

/// Whether two bytes are a letter from U+00C0 to U+02FF, which are all harmless.
bool isLatinLetter(std::string_view bytes) {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  return lead >= 0xC3 && lead <= 0xCB && bytes.size() > 1 &&
         (static_cast<unsigned char>(bytes[1]) & 0xC0) == 0x80;
}

/// The first byte that is not written as it is; the size of the text when there is none.
std::size_t findSpecial(std::string_view text) { return findUnprintable<'"', '\\'>(text); }

/// A text on its way into JSON. Plain bytes are written before it is known how many there are, so the output
/// is kept larger than what is left.
class Escaping {
 public:
  Escaping(std::string& out, std::string_view text) : m_out(out), m_used(out.size()), m_rest(text) {}

  void run() {
    while (!m_rest.empty()) {
      makeRoom();
      copyPlain();
      if (!m_rest.empty()) copySpecial();
    }
    m_out.resize(m_used);
  }

 private:
  static constexpr std::size_t kRoom = 32;  ///< More than a block, or an escape, takes beyond its text.

  void makeRoom() {
    if (m_out.size() - m_used < m_rest.size() + kRoom)
      m_out.resize(m_used + m_rest.size() + m_rest.size() / 8 + 2 * kRoom);
  }

  void copy(std::size_t size) {
    std::memcpy(m_out.data() + m_used, m_rest.data(), size);
    m_used += size;
    m_rest.remove_prefix(size);
  }

  void copyPlain() {
#if defined(__SSE2__)
    constexpr std::size_t kWidth = sizeof(__m128i);
    while (m_rest.size() >= kWidth) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m_rest.data()));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(m_out.data() + m_used), bytes);
      const unsigned found = static_cast<unsigned>(_mm_movemask_epi8(unprintableBytes<'"', '\\'>(bytes)));
      const std::size_t before = found ? static_cast<std::size_t>(std::countr_zero(found)) : kWidth;
      m_used += before;
      m_rest.remove_prefix(before);
      if (found) return;
    }
#endif
    copy(findSpecial(m_rest));
  }

  void copySpecial() {
    if (isLatinLetter(m_rest)) return copy(2);
    if (const char letter = kEscapeLetters[static_cast<unsigned char>(m_rest.front())]) {
      const char escape[] = {'\\', letter};
      return write({escape, sizeof escape}, 1);
    }
    std::size_t size = 0;
    const char32_t c = nextCodePoint(m_rest, size);
    if (c == kReplacementCharacter) return write("\xEF\xBF\xBD", size);
    if (c >= 0x80 && isHarmless(c)) return copy(size);
    std::array<char, 16> escape{};
    const auto unit = [](char32_t value) { return static_cast<unsigned>(value); };
    const int length =
        c < 0x10000 ? std::snprintf(escape.data(), escape.size(), "\\u%04x", unit(c))
                    : std::snprintf(escape.data(), escape.size(), "\\u%04x\\u%04x",  // a surrogate pair
                                    unit(0xD7C0 + (c >> 10)), unit(0xDC00 + (c & 0x3FF)));
    write({escape.data(), static_cast<std::size_t>(length)}, size);
  }

  /// Writes something instead of so many bytes.
  void write(std::string_view escape, std::size_t size) {
    std::memcpy(m_out.data() + m_used, escape.data(), escape.size());
    m_used += escape.size();
    m_rest.remove_prefix(size);
  }

  std::string& m_out;
  std::size_t m_used;  ///< Bytes of the output that are meant.
  std::string_view m_rest;
};

}  // namespace

void appendEscaped(std::string& out, std::string_view text) {
  const std::size_t plain = findSpecial(text);
  out.append(text.substr(0, plain));
  if (plain < text.size()) Escaping(out, text.substr(plain)).run();
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

void appendQuotedOrNull(std::string& out, std::string_view text) {
  text.empty() ? void(out += "null") : appendQuoted(out, text);
}

std::string& ObjectText::begin(std::string_view key) {
  m_text += m_text.back() == '{' ? "\"" : ",\"";
  m_text += key;
  return m_text += "\":";
}

ObjectText& ObjectText::add(std::string_view key, std::string_view text) {
  appendQuoted(begin(key), text);
  return *this;
}

ObjectText& ObjectText::add(std::string_view key, std::int64_t number) {
  begin(key) += std::to_string(number);
  return *this;
}

ObjectText& ObjectText::addOrNull(std::string_view key, std::string_view text) {
  appendQuotedOrNull(begin(key), text);
  return *this;
}

ObjectText& ObjectText::addIs(std::string_view key, bool is) {
  return addSerialized(key, is ? "true" : "false");
}

ObjectText& ObjectText::addSerialized(std::string_view key, std::string_view json) {
  begin(key) += json;
  return *this;
}

ObjectText& ObjectText::addMembers(std::string_view object) {
  if (object.size() <= 2) return *this;
  if (m_text.back() != '{') m_text += ',';
  m_text += object.substr(1, object.size() - 2);
  return *this;
}

std::string& ListText::begin() {
  if (!isEmpty()) m_text += ',';
  return m_text;
}

ListText& ListText::add(std::string_view text) {
  appendQuoted(begin(), text);
  return *this;
}

ListText& ListText::addSerialized(std::string_view json) {
  begin() += json;
  return *this;
}

}  // namespace mailtree::cli
