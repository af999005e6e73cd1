// base/XString.h - a utf-8 string that converts to utf-16 on demand and accepts utf-8 or ANSI text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class MAILTREE_API XString final : public SorvikObject {
 public:
  XString() noexcept = default;
  explicit XString(const char* utf8) : m_utf8(utf8) {}

  bool setFromUtf8(const char* text) { return m_utf8.setString(text); }
  bool setFromUtf8N(const char* text, std::size_t size) {
    return m_utf8.setString(std::string_view(text, text ? size : 0));
  }
  bool setFromSbUtf8(const StringBuffer& text) { return m_utf8.setString(text); }
  bool appendUtf8(const char* text) { return m_utf8.append(text); }
  bool appendUtf8N(const char* text, std::size_t size) { return m_utf8.appendN(text, size); }
  /// Appends text in the host's ANSI code page: valid utf-8 is appended unchanged, any
  /// other 8-bit byte as U+FFFD.
  bool appendAnsiN(const char* text, std::size_t size);
  bool copyFromX(const XString& other) { return m_utf8.setString(other.m_utf8); }

  const char* getUtf8() const noexcept { return m_utf8.getString(); }
  const StringBuffer& getUtf8Sb() const noexcept { return m_utf8; }
  StringBuffer& getUtf8Sb_rw() noexcept { return m_utf8; }
  std::string_view view() const noexcept { return m_utf8.view(); }
  /// utf-16 in the host's byte order, null-terminated, converted at each call and valid until the next one.
  const char16_t* getUtf16_xe();
  /// Characters (code points), not bytes.
  std::size_t getNumChars() const noexcept;

  bool isEmpty() const noexcept { return m_utf8.isEmpty(); }
  void clear() noexcept;
  void weakClear() noexcept { m_utf8.weakClear(); }
  void trim2() noexcept { m_utf8.trim2(); }
  std::size_t removeCharOccurances(char c) { return m_utf8.removeCharOccurances(c); }
  bool equalsIgnoreCaseUsAscii(const char* text) const noexcept { return m_utf8.equalsIgnoreCase(text); }
  std::size_t heapUsage() const override {
    return m_utf8.heapUsage() + m_utf16.capacity() * sizeof(char16_t);
  }

 private:
  StringBuffer m_utf8;
  std::u16string m_utf16;
};

}  // namespace mailtree
