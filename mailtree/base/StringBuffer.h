// base/StringBuffer.h - growable 8-bit string, always null-terminated, utf-8 unless a name says otherwise.
//
//   Null       Every `const char*` argument may be null and then counts as empty.
//   Failure    false only when memory ran out (the text is then unchanged) or as described at the operation.
//   Self       Arguments may point into the buffer itself.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"

namespace mailtree {

class DataBuffer;
class LogBase;

class MAILTREE_API StringBuffer final : public SorvikObject {
 public:
  StringBuffer() noexcept = default;
  StringBuffer(const char* text) : m_text(viewOf(text)) {}  // implicit: a text argument may be a literal
  explicit StringBuffer(std::string_view text) : m_text(text) {}
  StringBuffer(const StringBuffer&) = default;
  StringBuffer(StringBuffer&&) noexcept = default;
  StringBuffer& operator=(const StringBuffer& other) {
    // Most of the many texts of a part are empty.
    if (!m_text.empty() || !other.m_text.empty()) m_text = other.m_text;
    return *this;
  }
  StringBuffer& operator=(StringBuffer&&) noexcept = default;

  /// A new heap copy of `text` owned by the caller; null when memory ran out.
  static StringBuffer* createNewSB(const char* text);

  std::size_t heapUsage() const override;

  // Reading
  /// The text; never null, valid until the next change.
  const char* getString() const noexcept { return m_text.c_str(); }
  std::size_t getSize() const noexcept { return m_text.size(); }
  bool isEmpty() const noexcept { return m_text.empty(); }
  std::string_view view() const noexcept { return m_text; }
  operator std::string_view() const noexcept { return m_text; }
  /// The decimal number at the beginning of the text (blanks skipped), 0 when there is
  /// none; at most 4294967295.
  unsigned uintValue() const noexcept;

  // Replacing and clearing
  bool setString(const char* text) { return setString(viewOf(text)); }
  bool setString(const StringBuffer& text) { return setString(text.view()); }
  bool setString(std::string_view text) {
    if (!text.empty()) return assign(text);
    m_text.clear();
    return true;
  }
  void clear() noexcept {  ///< Empty, memory freed.
    if (hasAllocation())
      std::string().swap(m_text);
    else
      m_text.clear();
  }
  void weakClear() noexcept;    ///< Empty, memory kept.
  void strongClear() noexcept;  ///< Wipes every byte, then empty, memory freed.
  void minimizeMemoryUsage() {
    if (hasAllocation()) m_text.shrink_to_fit();
  }
  /// Moves the text out, leaving this empty.
  std::string extractString() noexcept;
  /// The text itself, for code that builds it in place.
  std::string& text() noexcept { return m_text; }

  // Adding
  bool append(const char* text) { return append(viewOf(text)); }
  bool append(const StringBuffer& text) { return append(text.view()); }
  bool append(const DataBuffer& bytes);
  bool append(std::string_view text);
  bool append(int number);
  bool appendN(const char* text, std::size_t size);
  bool appendChar(char c);
  /// Upper-case hexadecimal of the bytes, no white space.
  bool appendHexDataNoWS(const void* data, std::size_t size);
  bool prepend(const char* text);

  // Cutting
  void shorten(std::size_t n) noexcept;      ///< Drops n trailing bytes (all when n is larger).
  void chopAtFirstChar(char c) noexcept;     ///< Cuts before the first c; unchanged when absent.
  void trim2() noexcept;                     ///< Trims white space at both ends.
  void stripDirectory();                     ///< Keeps the text after the last "/" or "\".
  std::size_t removeCharOccurances(char c);  ///< Returns how many were removed.

  // Changing
  void toLowerCase() noexcept;  ///< ASCII letters only.
  void toUpperCase() noexcept;  ///< ASCII letters only.
  bool toCRLF();                ///< Every bare LF or CR becomes CRLF.
  void toAlphaNumUsAscii();     ///< Keeps US-ASCII letters and digits only.
  /// Converts between code pages in place; false when some characters could not be
  /// converted (the text then holds the others).
  bool convertEncoding(int fromCodePage, int toCodePage, LogBase& log);
  std::size_t replaceAllOccurances(const char* a, const char* b);  ///< Returns how many.
  bool replaceFirstOccurance(const char* a, const char* b);
  bool replaceLastOccurance(const char* a, const char* b);
  std::size_t replaceCharAnsi(char a, char b) noexcept;
  /// Replaces one ASCII character; bytes of multibyte utf-8 characters are not affected.
  std::size_t replaceCharUtf8(char a, char b) noexcept;

  // Comparing
  bool equals(std::string_view text) const noexcept { return view() == text; }
  bool equals(const char* text) const noexcept { return view() == viewOf(text); }
  bool equals(const StringBuffer& other) const noexcept { return view() == other.view(); }
  bool equalsIgnoreCase(const char* text) const noexcept { return equalsNoCase(m_text, viewOf(text)); }
  bool equalsIgnoreCase(const StringBuffer& text) const noexcept { return equalsNoCase(m_text, text.view()); }
  bool equalsIgnoreCase2(const char* text, std::size_t n) const noexcept;  ///< Against n bytes of text.
  bool beginsWith(const char* text) const noexcept { return view().starts_with(viewOf(text)); }
  bool beginsWithN(const char* text, std::size_t n) const noexcept;
  bool beginsWithIgnoreCase(const char* text) const noexcept {
    return beginsWithNoCase(m_text, viewOf(text));
  }
  bool beginsWithIgnoreCaseN(const char* text, std::size_t n) const noexcept;
  bool endsWith(const char* text) const noexcept { return view().ends_with(viewOf(text)); }
  bool endsWithIgnoreCase(const char* text) const noexcept { return endsWithNoCase(m_text, viewOf(text)); }
  bool containsChar(char c) const noexcept { return m_text.find(c) != std::string::npos; }
  bool containsSubstring(const char* text) const noexcept { return contains(m_text, viewOf(text)); }
  bool containsSubstringNoCase(const char* text) const noexcept {
    return containsNoCase(m_text, viewOf(text));
  }
  /// Wildcard match of the whole text, "*" for any run of characters.
  bool matches(const char* pattern, bool caseSensitive) const noexcept {
    return matchesWildcard(m_text, viewOf(pattern), caseSensitive);
  }
  /// Bytes of the longest line; line breaks (CR, LF) do not count.
  std::size_t longestLineLength() const noexcept;

 private:
  bool assign(std::string_view text);
  bool hasAllocation() const noexcept { return m_text.capacity() > std::string().capacity(); }

  std::string m_text;
};

}  // namespace mailtree
