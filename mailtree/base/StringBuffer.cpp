#include "mailtree/base/StringBuffer.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Search.h"

namespace mailtree {
namespace {

std::string_view viewOfN(const char* text, std::size_t size) noexcept {
  return text ? std::string_view(text, size) : std::string_view();
}

void overwriteWithZeros(std::string& text) noexcept {
  text.resize(text.capacity());  // includes the rest of an earlier, longer text
  volatile char* byte = text.data();
  for (std::size_t i = 0; i < text.size(); ++i) byte[i] = 0;
}

void appendWithCRLF(std::string& out, std::string_view line) {
  for (std::size_t cr; (cr = line.find('\r')) != std::string_view::npos; line.remove_prefix(cr + 1))
    out.append(line.substr(0, cr)).append("\r\n");
  out.append(line);
}

/// The text with every CR, LF and CRLF written as CRLF.
std::string withCRLF(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 16);
  for (std::size_t lf; (lf = text.find('\n')) != std::string_view::npos; text.remove_prefix(lf + 1)) {
    std::string_view line = text.substr(0, lf);
    if (line.ends_with('\r')) line.remove_suffix(1);
    appendWithCRLF(out, line);
    out.append("\r\n");
  }
  appendWithCRLF(out, text);
  return out;
}

bool replaceAt(std::string& text, std::size_t at, std::size_t size, std::string_view replacement) {
  if (at == std::string::npos) return false;
  return neverThrow(false, [&] {
    text.replace(at, size, replacement);
    return true;
  });
}

}  // namespace

StringBuffer* StringBuffer::createNewSB(const char* text) {
  return neverThrow<StringBuffer*>(nullptr, [&] { return std::make_unique<StringBuffer>(text).release(); });
}

std::size_t StringBuffer::heapUsage() const { return hasAllocation() ? m_text.capacity() + 1 : 0; }

unsigned StringBuffer::uintValue() const noexcept {
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t value = 0;
  for (const char c : trimLeft(m_text)) {
    if (!isDigitAscii(c)) break;
    value = std::min(kMax, value * 10 + static_cast<std::uint64_t>(c - '0'));
  }
  return static_cast<unsigned>(value);
}

bool StringBuffer::assign(std::string_view text) {
  return neverThrow(false, [&] {
    m_text.assign(text);
    return true;
  });
}

void StringBuffer::weakClear() noexcept { m_text.clear(); }

void StringBuffer::strongClear() noexcept {
  overwriteWithZeros(m_text);
  clear();
}

std::string StringBuffer::extractString() noexcept { return std::exchange(m_text, std::string()); }

bool StringBuffer::append(const DataBuffer& bytes) { return append(bytes.view()); }

bool StringBuffer::append(std::string_view text) {
  return neverThrow(false, [&] {
    m_text.append(text);
    return true;
  });
}

bool StringBuffer::append(int number) {
  char digits[std::numeric_limits<int>::digits10 + 3];
  const char* const end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  return append(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

bool StringBuffer::appendN(const char* text, std::size_t size) { return append(viewOfN(text, size)); }

bool StringBuffer::appendChar(char c) {
  return neverThrow(false, [&] {
    m_text.push_back(c);
    return true;
  });
}

bool StringBuffer::appendHexDataNoWS(const void* data, std::size_t size) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  return neverThrow(false, [&] {
    std::string hex;  // separate, because the data may be inside this text
    hex.reserve(2 * size);
    for (const char c : viewOfN(static_cast<const char*>(data), size)) {
      const auto byte = static_cast<unsigned char>(c);
      hex.push_back(kDigits[byte >> 4]);
      hex.push_back(kDigits[byte & 15]);
    }
    m_text.append(hex);
    return true;
  });
}

bool StringBuffer::prepend(const char* text) { return replaceAt(m_text, 0, 0, viewOf(text)); }

void StringBuffer::shorten(std::size_t n) noexcept {
  m_text.resize(m_text.size() - std::min(n, m_text.size()));
}

void StringBuffer::chopAtFirstChar(char c) noexcept {
  m_text.resize(std::min(m_text.find(c), m_text.size()));
}

void StringBuffer::trim2() noexcept {
  m_text.resize(trimRight(m_text).size());
  m_text.erase(0, m_text.size() - trimLeft(m_text).size());
}

void StringBuffer::stripDirectory() { m_text.erase(0, m_text.size() - baseName(m_text).size()); }

std::size_t StringBuffer::removeCharOccurances(char c) { return std::erase(m_text, c); }

void StringBuffer::toLowerCase() noexcept {
  for (char& c : m_text) c = toLowerAscii(c);
}

void StringBuffer::toUpperCase() noexcept {
  for (char& c : m_text) c = toUpperAscii(c);
}

bool StringBuffer::toCRLF() {
  if (!hasBareLineEnd(m_text)) return true;
  return neverThrow(false, [&] {
    m_text = withCRLF(m_text);
    return true;
  });
}

void StringBuffer::toAlphaNumUsAscii() {
  std::erase_if(m_text, [](char c) { return !isAlnumAscii(c); });
}

std::size_t StringBuffer::replaceAllOccurances(const char* a, const char* b) {
  StringBuffer replaced;
  const std::size_t count = replaceAllInto(replaced, m_text, viewOf(a), viewOf(b));
  if (count) m_text.swap(replaced.m_text);
  return count;
}

bool StringBuffer::replaceFirstOccurance(const char* a, const char* b) {
  const std::string_view wanted = viewOf(a);
  return !wanted.empty() && replaceAt(m_text, findSubstring(m_text, wanted), wanted.size(), viewOf(b));
}

bool StringBuffer::replaceLastOccurance(const char* a, const char* b) {
  const std::string_view wanted = viewOf(a);
  return !wanted.empty() && replaceAt(m_text, m_text.rfind(wanted), wanted.size(), viewOf(b));
}

std::size_t StringBuffer::replaceCharAnsi(char a, char b) noexcept {
  std::size_t count = 0;
  for (char& c : m_text) {
    if (c != a) continue;
    c = b;
    ++count;
  }
  return count;
}

std::size_t StringBuffer::replaceCharUtf8(char a, char b) noexcept {
  return is8bit(a) || is8bit(b) ? 0 : replaceCharAnsi(a, b);
}

bool StringBuffer::equalsIgnoreCase2(const char* text, std::size_t n) const noexcept {
  return equalsNoCase(m_text, viewOfN(text, n));
}

bool StringBuffer::beginsWithN(const char* text, std::size_t n) const noexcept {
  return view().starts_with(viewOfN(text, n));
}

bool StringBuffer::beginsWithIgnoreCaseN(const char* text, std::size_t n) const noexcept {
  return beginsWithNoCase(m_text, viewOfN(text, n));
}

std::size_t StringBuffer::longestLineLength() const noexcept { return longestLine(m_text); }

}  // namespace mailtree
