#include "mailtree/base/Utf.h"

#include <algorithm>
#include <cstring>

namespace mailtree {
namespace {

/// What a lead byte requires: the number of trail bytes, and the range of the first of them
/// (the others are 80..BF).
struct Lead {
  unsigned trail;
  unsigned char low;
  unsigned char high;
};

constexpr Lead leadOf(unsigned char byte) noexcept {
  if (byte < 0xC2 || byte > 0xF4) return {0, 0, 0};
  if (byte < 0xE0) return {1, 0x80, 0xBF};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};  // no overlong forms
  if (byte == 0xED) return {2, 0x80, 0x9F};  // no surrogates
  if (byte < 0xF0) return {2, 0x80, 0xBF};
  if (byte == 0xF0) return {3, 0x90, 0xBF};  // no overlong forms
  if (byte == 0xF4) return {3, 0x80, 0x8F};  // nothing above U+10FFFF
  return {3, 0x80, 0xBF};
}

constexpr bool isTrail(char c) noexcept { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

constexpr bool isSurrogate(char32_t codePoint) noexcept { return codePoint >= 0xD800 && codePoint <= 0xDFFF; }
constexpr bool isHighSurrogate(char32_t unit) noexcept { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t unit) noexcept { return unit >= 0xDC00 && unit <= 0xDFFF; }
constexpr char32_t joinSurrogates(char32_t high, char32_t low) noexcept {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

/// Writes one code point; returns the number of bytes, at most 4.
std::size_t encode(char* to, char32_t codePoint) noexcept {
  if (isSurrogate(codePoint) || codePoint > 0x10FFFF) codePoint = kReplacementCharacter;
  const auto trail = [&](unsigned shift) { return static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F)); };
  if (codePoint < 0x80) {
    to[0] = static_cast<char>(codePoint);
    return 1;
  }
  if (codePoint < 0x800) {
    to[0] = static_cast<char>(0xC0 | (codePoint >> 6));
    to[1] = trail(0);
    return 2;
  }
  if (codePoint < 0x10000) {
    to[0] = static_cast<char>(0xE0 | (codePoint >> 12));
    to[1] = trail(6);
    to[2] = trail(0);
    return 3;
  }
  to[0] = static_cast<char>(0xF0 | (codePoint >> 18));
  to[1] = trail(12);
  to[2] = trail(6);
  to[3] = trail(0);
  return 4;
}

/// Bytes of a utf-16 text, read unit by unit.
class Utf16Reader {
 public:
  Utf16Reader(std::string_view bytes, bool bigEndian) noexcept : m_bytes(bytes), m_bigEndian(bigEndian) {}
  bool atEnd() const noexcept { return m_at >= m_bytes.size(); }

  char32_t nextCodePoint() noexcept {
    if (m_at + 1 == m_bytes.size()) {
      ++m_at;
      return kReplacementCharacter;  // half a unit
    }
    const char32_t unit = unitAt(m_at);
    m_at += 2;
    if (!isHighSurrogate(unit) || m_bytes.size() - m_at < 2 || !isLowSurrogate(unitAt(m_at))) return unit;
    const char32_t low = unitAt(m_at);
    m_at += 2;
    return joinSurrogates(unit, low);
  }

 private:
  char32_t unitAt(std::size_t at) const noexcept {
    const auto first = static_cast<unsigned char>(m_bytes[at]);
    const auto second = static_cast<unsigned char>(m_bytes[at + 1]);
    return m_bigEndian ? (first << 8 | second) : (second << 8 | first);
  }

  std::string_view m_bytes;
  std::size_t m_at = 0;
  bool m_bigEndian;
};

}  // namespace

bool isAscii(std::string_view bytes) noexcept {
  constexpr std::size_t kBlock = 64, kWord = sizeof(std::uint64_t);
  const auto wordAt = [bytes](std::size_t at) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, kWord);
    return word;
  };
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t at = 0;
  for (; bytes.size() - at >= kBlock; at += kBlock) {
    std::uint64_t all = 0;
    for (std::size_t i = 0; i < kBlock; i += kWord) all |= wordAt(at + i);
    if (all & kHighBits) return false;
  }
  std::uint64_t all = 0;
  for (; bytes.size() - at >= kWord; at += kWord) all |= wordAt(at);
  for (; at < bytes.size(); ++at) all |= static_cast<unsigned char>(bytes[at]);
  return (all & kHighBits) == 0;
}

char32_t nextCodePoint(std::string_view utf8, std::size_t& position) noexcept {
  const auto first = static_cast<unsigned char>(utf8[position++]);
  if (first < 0x80) return first;
  Lead lead = leadOf(first);
  if (lead.trail == 0) return kReplacementCharacter;
  char32_t codePoint = first & (0x3FU >> lead.trail);
  for (; lead.trail > 0; --lead.trail) {
    const unsigned char next = position < utf8.size() ? static_cast<unsigned char>(utf8[position]) : 0;
    if (next < lead.low || next > lead.high) return kReplacementCharacter;
    lead.low = 0x80;
    lead.high = 0xBF;
    codePoint = codePoint << 6 | (next & 0x3F);
    ++position;
  }
  return codePoint;
}

void appendUtf8(std::string& out, char32_t codePoint) {
  char bytes[4];
  out.append(bytes, encode(bytes, codePoint));
}

std::size_t utf8PrefixLength(std::string_view utf8, std::size_t limit) noexcept {
  if (limit >= utf8.size()) return utf8.size();
  std::size_t begin = limit;
  while (begin > 0 && limit - begin < 3 && isTrail(utf8[begin])) --begin;
  // A character that crosses the limit is left out completely; stray bytes belong to none
  // and may be cut anywhere.
  const std::size_t size = leadOf(static_cast<unsigned char>(utf8[begin])).trail + 1;
  return begin + size > limit ? begin : limit;
}

void appendUtf16AsUtf8(std::string& out, std::string_view utf16Bytes, bool bigEndian) {
  char chunk[1024];
  std::size_t used = 0;
  for (Utf16Reader reader(utf16Bytes, bigEndian); !reader.atEnd();) {
    used += encode(chunk + used, reader.nextCodePoint());
    if (used + 4 <= sizeof chunk) continue;
    out.append(chunk, used);
    used = 0;
  }
  out.append(chunk, used);
}

std::u16string utf8ToUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  for (std::size_t at = 0; at < utf8.size();) {
    const char32_t codePoint = nextCodePoint(utf8, at);
    if (codePoint < 0x10000) {
      out.push_back(static_cast<char16_t>(codePoint));
    } else {
      out.push_back(static_cast<char16_t>(0xD800 + ((codePoint - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((codePoint - 0x10000) & 0x3FF)));
    }
  }
  return out;
}

}  // namespace mailtree
