// store/FileReader.h - bytes of files by position, and of streams. Private.
//
// Files are read with pread and not mapped: a mapped file that becomes shorter ends the process with a
// signal.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "mailtree/base/Result.h"

namespace mailtree {

/// Owner of a file descriptor.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int fd) noexcept : m_fd(fd) {}
  Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();
  int get() const noexcept { return m_fd; }
  explicit operator bool() const noexcept { return m_fd >= 0; }

 private:
  int m_fd = -1;
};

/// Becomes true when nothing shall be waited for any more.
using Cancel = std::atomic<bool>;

/// Bytes in order.
class ByteStream {
 public:
  ByteStream() = default;
  ByteStream(const ByteStream&) = delete;
  ByteStream& operator=(const ByteStream&) = delete;
  virtual ~ByteStream() = default;
  /// Reads up to `size` bytes; 0 at the end only.
  virtual Result<std::size_t> read(char* out, std::size_t size) = 0;
};

/// The bytes of a descriptor, after some that were read from it before.
class DescriptorStream final : public ByteStream {
 public:
  /// @param cancel  ends the wait for bytes with an error when it becomes true; may be null.
  DescriptorStream(Descriptor file, std::string path, std::string before, const Cancel* cancel);
  Result<std::size_t> read(char* out, std::size_t size) override;

 private:
  bool waitForBytes() const noexcept;

  Descriptor m_file;
  std::string m_path, m_before;
  std::size_t m_given = 0;
  const Cancel* m_cancel;
};

/// Bytes in memory.
class TextStream final : public ByteStream {
 public:
  explicit TextStream(std::string text) noexcept : m_text(std::move(text)) {}
  Result<std::size_t> read(char* out, std::size_t size) override {
    const std::size_t given = m_text.copy(out, size, m_given);
    m_given += given;
    return given;
  }

 private:
  std::string m_text;
  std::size_t m_given = 0;
};

/// A regular file, as long as it was when it was opened.
class FileReader {
 public:
  FileReader(Descriptor file, std::string path, std::uint64_t size);
  const std::string& path() const noexcept { return m_path; }
  std::uint64_t size() const noexcept { return m_size; }
  int descriptor() const noexcept { return m_file.get(); }
  /// Reads exactly so many bytes, which must be within the size.
  Result<void> readAt(std::uint64_t offset, char* out, std::size_t size) const;
  /// Where bytes that are not in a hole begin, at or after `offset`; `offset` itself when that is not known.
  std::uint64_t dataFrom(std::uint64_t offset) const noexcept;

 private:
  Descriptor m_file;
  std::string m_path;
  std::uint64_t m_size;
};

/// Opens anything that has bytes; a folder is an error.
/// @param cancel  not null: a named pipe is opened without waiting for a writer, which reading does then.
Result<Descriptor> openToRead(const std::string& path, const Cancel* cancel = nullptr);

}  // namespace mailtree
