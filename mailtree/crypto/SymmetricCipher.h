// crypto/SymmetricCipher.h - encrypts whole buffers under one key.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"

namespace mailtree {

class LogBase;

enum class CipherMode { cbc, ctr, gcm };

/// Algorithm, mode and key. The key is wiped at the end and when it is replaced. Copying must be explicit.
class MAILTREE_API _svSymSettings {
 public:
  _svSymSettings() = default;
  _svSymSettings(const _svSymSettings&) = delete;
  _svSymSettings& operator=(const _svSymSettings&) = delete;
  ~_svSymSettings();

  CipherMode m_mode = CipherMode::cbc;
  /// Additional data that GCM authenticates with the next buffer: decryption needs the same.
  /// The other modes ignore it.
  std::string m_associatedData;
  /// Whether GCM binds each body of a tree to its type and position. False decrypts
  /// trees that were encrypted without binding.
  bool m_bindsBodies = true;

  /// AES-128, -192 or -256 by the size of the key: 16, 24 or 32 bytes; false for any other.
  bool setKey(std::string_view key);
  /// A key of `keyBits` derived from a password with PBKDF2 (HMAC-SHA-256). The same password, salt and count
  /// give the same key. False for a size that AES does not have, or a count under 1.
  bool deriveKey(std::string_view password, std::string_view salt, int iterations, int keyBits);
  bool hasKey() const noexcept { return !m_key.isEmpty(); }
  /// Fixes the initialization vector, 16 bytes, in CBC. Otherwise every buffer gets a random one, stored
  /// before the ciphertext. CTR and GCM always do that: reusing a vector under one key would reveal both
  /// texts. False for any other size.
  bool setIv(std::string_view iv);

  std::string_view key() const noexcept { return m_key.view(); }
  std::string_view iv() const noexcept { return m_iv.view(); }

 private:
  bool deriveKeyOf(std::size_t size, std::string_view password, std::string_view salt, int iterations);

  DataBuffer m_key;
  DataBuffer m_iv;
};

/// Encrypts and decrypts whole buffers.
class MAILTREE_API _svCrypt {
 public:
  virtual ~_svCrypt() = default;
  /// Replaces `out`. False, with the reason logged and `out` empty, on failure.
  virtual bool encryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) = 0;
  /// A wrong key is always detected in GCM, usually by the padding in CBC, and never in CTR.
  virtual bool decryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) = 0;
};

/// AES: CBC with PKCS#7 padding, CTR, and GCM with a tag of 16 bytes after the ciphertext. The
/// vector before it has 16 bytes, in GCM 12. `in` and `out` may be the same buffer. No bytes decrypt
/// to no bytes: an empty body stays empty.
class MAILTREE_API SymmetricCipher final : public _svCrypt {
 public:
  bool encryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) override;
  bool decryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) override;
};

}  // namespace mailtree
