// crypto/DataSource.h - sources of bytes to sign or encrypt.
#pragma once

#include <optional>
#include <string_view>

#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// A stream of bytes read once, from its beginning to its end.
class _svDataSource {
 public:
  virtual ~_svDataSource() = default;
  /// The next piece, borrowed until the next call; empty at the end. Nullopt when reading failed.
  virtual std::optional<std::string_view> next() = 0;
};

/// Bytes in memory, returned in one piece.
class _svMemoryDataSource final : public _svDataSource {
 public:
  _svMemoryDataSource() = default;
  _svMemoryDataSource(const _svMemoryDataSource&) = delete;
  _svMemoryDataSource& operator=(const _svMemoryDataSource&) = delete;
  /// Wipes a text that was taken over.
  ~_svMemoryDataSource() override { m_owned.strongClear(); }

  /// Borrows the bytes.
  void initializeMemSource(const char* bytes, unsigned size) noexcept;
  /// Takes a text over, leaving `text` empty.
  void takeStringBuffer(StringBuffer& text);
  std::optional<std::string_view> next() override;

 private:
  StringBuffer m_owned;
  std::string_view m_rest;
};

}  // namespace mailtree
