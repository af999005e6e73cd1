// store/SourceReader.h - one kind of source, and what they share. Private.
#pragma once

#include <string_view>

#include "mailtree/store/MailSource.h"

namespace mailtree {

class SourceReader {
 public:
  SourceReader() = default;
  SourceReader(const SourceReader&) = delete;
  SourceReader& operator=(const SourceReader&) = delete;
  virtual ~SourceReader() = default;

  virtual MailSource::Kind kind() const noexcept = 0;
  /// Gives the next message; false at the end, or an error that ends reading.
  virtual Result<bool> next(SourceMessage& message) = 0;
  /// Passes one message.
  virtual Result<bool> pass() = 0;
  virtual Result<void> seekOffset(std::uint64_t) {
    return Error{ErrorCode::badValue, "only messages of an mbox have offsets", {}};
  }
  /// Limits reading to a range of bytes; false when this kind of source has none.
  virtual Result<bool> takeRange(std::uint64_t /*part*/, std::uint64_t /*parts*/) { return false; }
  virtual Result<bool> takeBytes(std::uint64_t /*begin*/, std::uint64_t /*end*/) { return false; }
};

/// Empties what a source gives, keeping memory.
void clearMessage(SourceMessage& message) noexcept;

/// "cannot be read: No such file or directory".
Error unreadable(std::string_view path, int error);
Error unwritable(std::string_view path, int error);
Error tooLarge(std::string_view path, std::uint64_t size);

}  // namespace mailtree
