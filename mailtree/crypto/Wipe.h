// crypto/Wipe.h - overwrites memory that held secrets before it is freed.
#pragma once

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// Overwrites the bytes, then empties the buffer: for keys and decrypted content.
/// Borrowed bytes are not changed.
void wipe(DataBuffer& bytes) noexcept;
inline void wipe(StringBuffer& text) noexcept { text.strongClear(); }

/// Wipes a buffer at the end of its scope.
template <class Buffer>
class WipedAtEnd {
 public:
  explicit WipedAtEnd(Buffer& bytes) noexcept : m_bytes(bytes) {}
  WipedAtEnd(const WipedAtEnd&) = delete;
  WipedAtEnd& operator=(const WipedAtEnd&) = delete;
  ~WipedAtEnd() { wipe(m_bytes); }

 private:
  Buffer& m_bytes;
};

}  // namespace mailtree
