#include "mailtree/base/XString.h"

#include <algorithm>

#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

constexpr std::string_view kReplacementUtf8 = "\xEF\xBF\xBD";

/// Appends well-formed utf-8 unchanged and each other 8-bit byte as U+FFFD.
void appendRepaired(std::string& out, std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = at;
    const char32_t codePoint = nextCodePoint(text, at);
    const std::string_view consumed = text.substr(begin, at - begin);
    if (codePoint != kReplacementCharacter || consumed == kReplacementUtf8) {
      out.append(consumed);
    } else {
      for (std::size_t i = 0; i < consumed.size(); ++i) out.append(kReplacementUtf8);
    }
  }
}

}  // namespace

bool XString::appendAnsiN(const char* text, std::size_t size) {
  const std::string_view bytes(text, text ? size : 0);
  if (isValidUtf8(bytes)) return m_utf8.append(bytes);
  return neverThrow(false, [&] {
    std::string repaired;
    repaired.reserve(bytes.size() * 2);
    appendRepaired(repaired, bytes);
    return m_utf8.append(std::string_view(repaired));
  });
}

const char16_t* XString::getUtf16_xe() {
  const bool converted = neverThrow(false, [&] {
    m_utf16 = utf8ToUtf16(m_utf8.view());
    return true;
  });
  if (!converted) m_utf16.clear();
  return m_utf16.c_str();
}

std::size_t XString::getNumChars() const noexcept {
  const std::string_view text = m_utf8.view();
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void XString::clear() noexcept {
  m_utf8.clear();
  std::u16string().swap(m_utf16);
}

}  // namespace mailtree
