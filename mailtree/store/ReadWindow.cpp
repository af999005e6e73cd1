#include "mailtree/store/ReadWindow.h"

#include <algorithm>
#include <cstring>

namespace mailtree {

ReadWindow::ReadWindow(std::shared_ptr<FileReader> file, std::size_t chunk)
    : m_file(std::move(file)),
      m_chunk(static_cast<std::size_t>(
          std::clamp<std::uint64_t>(m_file->size(), 1, std::max<std::size_t>(chunk, 1)))),
      m_isAtEnd(m_file->size() == 0) {}

ReadWindow::ReadWindow(std::unique_ptr<ByteStream> stream, std::size_t chunk)
    : m_stream(std::move(stream)), m_chunk(std::max<std::size_t>(chunk, 1)) {}

/// Moves the window to the front when that frees half the buffer, else doubles the buffer: each byte is moved
/// a few times at most, however long the piece is.
void ReadWindow::makeRoom(std::size_t size) {
  if (m_capacity - m_to >= size) return;
  const std::size_t held = m_to - m_from;
  const bool hasRoom = held + size <= m_capacity && m_from >= m_capacity / 2;
  if (!hasRoom) return moveToBuffer(std::max(2 * m_capacity, held + 2 * size));
  std::memmove(m_buffer.get(), m_buffer.get() + m_from, held);
  m_base += m_from;
  m_from = 0;
  m_to = held;
}

void ReadWindow::moveToBuffer(std::size_t capacity) {
  const std::size_t held = m_to - m_from;
  std::unique_ptr<char[]> other(new char[capacity]);  // make_unique would fill it with zeros
  if (held) std::memcpy(other.get(), m_buffer.get() + m_from, held);
  m_buffer = std::move(other);
  m_capacity = capacity;
  m_base += m_from;
  m_from = 0;
  m_to = held;
}

void ReadWindow::release(std::uint64_t keep) {
  m_from = static_cast<std::size_t>(std::clamp(keep, begin(), end()) - m_base);
  moveToBuffer(m_to - m_from + m_chunk);
}

Result<std::size_t> ReadWindow::read(char* out, std::size_t size) {
  if (m_stream) return m_stream->read(out, size);
  const std::size_t left = static_cast<std::size_t>(std::min<std::uint64_t>(m_file->size() - end(), size));
  if (Result<void> done = m_file->readAt(end(), out, left); !done) return std::move(done).error();
  return left;
}

Result<void> ReadWindow::more(std::uint64_t keep) {
  m_from = static_cast<std::size_t>(std::clamp(keep, begin(), end()) - m_base);
  if (m_isAtEnd) return {};
  makeRoom(m_chunk);
  const Result<std::size_t> got = read(m_buffer.get() + m_to, m_chunk);
  if (!got) return got.error();
  m_to += *got;
  m_isAtEnd = m_stream ? *got == 0 : end() >= m_file->size();
  return {};
}

Result<void> ReadWindow::ensure(std::uint64_t from, std::uint64_t size, std::uint64_t keep) {
  while (!m_isAtEnd && end() - std::min(from, end()) < size)
    if (Result<void> done = more(keep); !done) return done;
  return {};
}

void ReadWindow::skipHole() noexcept {
  if (!m_file || m_isAtEnd) return;
  if (const std::uint64_t data = m_file->dataFrom(end()); data > end()) moveTo(data);
}

void ReadWindow::moveTo(std::uint64_t offset) noexcept {
  m_from = m_to = 0;
  m_base = offset;
  m_isAtEnd = offset >= m_file->size();
}

}  // namespace mailtree
