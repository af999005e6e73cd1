// store/ReadWindow.h - a window that moves forward over a file or a stream. Private.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "mailtree/store/FileReader.h"

namespace mailtree {

/// Positions are those in the file. What is kept is asked for with each reading, so the window is as large as
/// the longest piece that a caller wants to have at once.
class ReadWindow {
 public:
  ReadWindow(std::shared_ptr<FileReader> file, std::size_t chunk);
  ReadWindow(std::unique_ptr<ByteStream> stream, std::size_t chunk);

  std::uint64_t begin() const noexcept { return m_base + m_from; }
  std::uint64_t end() const noexcept { return m_base + m_to; }
  /// Whether there is nothing after end().
  bool isAtEnd() const noexcept { return m_isAtEnd; }
  /// What is in the window from a position within it.
  std::string_view text(std::uint64_t from) const noexcept {
    return {m_buffer.get() + (from - m_base), m_to - static_cast<std::size_t>(from - m_base)};
  }
  std::string_view text() const noexcept { return text(begin()); }
  /// Null when this is a stream.
  const FileReader* file() const noexcept { return m_file.get(); }

  /// Reads on; nothing before `keep` is kept.
  Result<void> more(std::uint64_t keep);
  /// Reads on until `size` bytes from `from`, or all there are, are in the window.
  Result<void> ensure(std::uint64_t from, std::uint64_t size, std::uint64_t keep);
  /// Skips a hole of the file at the end of the window, which is empty then.
  void skipHole() noexcept;
  /// Gives the memory of a long piece back; nothing before `keep` is kept.
  void release(std::uint64_t keep);
  /// Continues at another position of the file.
  void moveTo(std::uint64_t offset) noexcept;

 private:
  void makeRoom(std::size_t size);
  void moveToBuffer(std::size_t capacity);
  Result<std::size_t> read(char* out, std::size_t size);

  std::shared_ptr<FileReader> m_file;
  std::unique_ptr<ByteStream> m_stream;
  std::size_t m_chunk;
  std::unique_ptr<char[]> m_buffer;
  std::size_t m_capacity = 0;
  std::uint64_t m_base = 0;          ///< Position of the buffer's first byte.
  std::size_t m_from = 0, m_to = 0;  ///< The window in the buffer.
  bool m_isAtEnd = false;
};

}  // namespace mailtree
