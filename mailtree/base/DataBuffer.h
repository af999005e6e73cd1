// base/DataBuffer.h - growable byte buffer: bodies, files, whole messages.
//
//   Memory     Grows without initializing new bytes; takeData moves, never copies. After borrowData the bytes
//              belong to the lender: they are copied at the first change.
//   Failure    false when memory ran out (the bytes are then unchanged) or as described at the operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"

namespace mailtree {

class LogBase;
class StringBuffer;

class MAILTREE_API DataBuffer final : public SorvikObject {
 public:
  DataBuffer() noexcept = default;
  /// A copy; borrowed bytes become its own. Empty when memory ran out: use append() to detect that.
  DataBuffer(const DataBuffer& other);
  DataBuffer(DataBuffer&& other) noexcept;
  DataBuffer& operator=(const DataBuffer& other);
  DataBuffer& operator=(DataBuffer&& other) noexcept;
  ~DataBuffer() override;

  std::size_t heapUsage() const override;

  // Reading
  /// The bytes, null-terminated only when the content is; null when nothing was ever stored.
  const unsigned char* getData2() const noexcept { return m_data; }
  std::size_t getSize() const noexcept { return m_size; }
  bool isEmpty() const noexcept { return m_size == 0; }
  std::string_view view() const noexcept {
    return m_size ? std::string_view(reinterpret_cast<const char*>(m_data), m_size) : std::string_view();
  }
  bool containsChar(char c) const noexcept;
  /// Searches the first `limit` bytes only; 0 means all.
  bool containsSubstring(const char* text, std::size_t limit) const noexcept;
  /// Whether there is a CR without LF or an LF without CR.
  bool containsBareCRLF() const noexcept;
  /// Position of the first occurrence of the bytes, -1 when absent.
  std::ptrdiff_t findBytes(const void* bytes, std::size_t size) const noexcept;
  bool endsWithStr(const char* text) const noexcept;
  /// Whether a line has more than n bytes; CR and LF do not count.
  bool hasLineLonger(std::size_t n) const noexcept;
  /// Whether all of the first `limit` bytes are below 0x80; 0 means all.
  bool is7bit(std::size_t limit) const noexcept;
  /// Upper-case hexadecimal of the bytes, appended.
  bool toHexString(StringBuffer& out) const;

  // Adding
  bool append(const void* bytes, std::size_t size);
  bool append(const DataBuffer& other) { return append(other.m_data, other.m_size); }
  bool append(const StringBuffer& text);
  bool append(const char* text) { return append(viewOf(text)); }
  bool append(std::string_view bytes) { return append(bytes.data(), bytes.size()); }
  bool appendChar(char c);
  bool prepend(const void* bytes, std::size_t size);
  /// Room for `size` more bytes; false when memory ran out.
  bool reserveMore(std::size_t size);
  /// Adds `size` bytes that the caller writes; null when memory ran out. shorten() returns the unused part.
  unsigned char* appendUninitialized(std::size_t size);

  // Replacing, moving, cutting
  void clear() noexcept;                      ///< Empty, memory freed.
  void shorten(std::size_t n) noexcept;       ///< Drops n trailing bytes (all when n is larger).
  void takeData(DataBuffer& other) noexcept;  ///< Moves the other's bytes in, leaving it empty.
  /// Refers to bytes without copying; they must outlive this buffer or its next change.
  void borrowData(const void* bytes, std::size_t size) noexcept;
  void minimizeMemoryUsage() noexcept;

  // Changing
  std::size_t replaceChar(char a, char b);
  /// Returns how many were replaced; an empty `a` matches nothing. One pass for any number.
  std::size_t replaceAllOccurances(std::string_view a, std::string_view b);
  /// utf-16LE to utf-8, a byte-order mark dropped, appended to `out`. A lone surrogate or a half unit becomes
  /// U+FFFD.
  bool cvUnicodeToUtf8(StringBuffer& out) const;
  bool cvUnicodeToUtf8_db(DataBuffer& out) const;

  /// Replaces the bytes with those of a file (path in utf-8). False, with the reason logged and the buffer
  /// empty, when it cannot be read.
  bool loadFileUtf8(const char* path, LogBase& log);

  /// Removes the dot-stuffing of a message received from a POP3 server, before parsing. (mime/PopText.cpp)
  void processRawPopMime();

 private:
  bool own(std::size_t capacity);
  int readFile(const char* path);

  unsigned char* m_data = nullptr;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;  ///< 0 while the bytes are borrowed.
};

}  // namespace mailtree
