// base/DataBuffer.h - growable byte buffer: bodies, files, whole messages.
//
//   Memory     Grows without initialising what it adds; moves, never copies, with takeData. After borrowData
//              the bytes belong to somebody else: they are copied at the first change.
//   Failure    false when memory ran out (the bytes are then unchanged) or when the operation says so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Object.h"

namespace mailtree {

class LogBase;
class StringBuffer;

class DataBuffer final : public SorvikObject {
 public:
  DataBuffer() noexcept = default;
  /// A copy; borrowed bytes become its own. Empty when memory ran out: where that matters, append() tells.
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
  /// Whether a CR without LF or an LF without CR stands somewhere.
  bool containsBareCRLF() const noexcept;
  /// Position of the first occurrence of the bytes, -1 when absent.
  std::ptrdiff_t findBytes(const void* bytes, std::size_t size) const noexcept;
  bool endsWithStr(const char* text) const noexcept;
  /// Whether a line holds more than n bytes; CR and LF do not count.
  bool hasLineLonger(std::size_t n) const noexcept;
  /// Whether no byte is 0x80 or above among the first `limit` bytes; 0 means all.
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
  /// Adds `size` bytes whose content the caller writes; null when memory ran out. shorten() gives back what
  /// is not used.
  unsigned char* appendUninitialized(std::size_t size);

  // Replacing, handing over, cutting
  void clear() noexcept;                      ///< Empty, allocation given back.
  void shorten(std::size_t n) noexcept;       ///< Drops n trailing bytes (all when n is larger).
  void takeData(DataBuffer& other) noexcept;  ///< Moves the other's bytes in, leaving it empty.
  /// Refers to bytes without copying; they must outlive this buffer or its next change.
  void borrowData(const void* bytes, std::size_t size) noexcept;
  void minimizeMemoryUsage() noexcept;

  // Changing
  std::size_t replaceChar(char a, char b);
  /// How many were replaced; an empty `a` matches nothing. One pass whatever the count.
  std::size_t replaceAllOccurances(std::string_view a, std::string_view b);
  /// utf-16LE to utf-8, a byte-order mark dropped, appended to `out`. A lone surrogate or a half unit becomes
  /// U+FFFD.
  bool cvUnicodeToUtf8(StringBuffer& out) const;
  bool cvUnicodeToUtf8_db(DataBuffer& out) const;

  /// Replaces the bytes by those of a file (path in utf-8). False, with the reason logged, when it cannot be
  /// read; the buffer is then empty.
  bool loadFileUtf8(const char* path, LogBase& log);

  /// Normalises a message as received from a POP3 server before parsing: undoes the dot-stuffing.
  /// (mime/PopText.cpp)
  void processRawPopMime();

 private:
  bool own(std::size_t capacity);
  int readFile(const char* path);

  unsigned char* m_data = nullptr;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;  ///< 0 while the bytes are borrowed.
};

}  // namespace mailtree
