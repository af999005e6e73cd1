// crypto/SymmetricCipher.h - whole buffers encrypted under one key.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/base/DataBuffer.h"

namespace mailtree {

class LogBase;

enum class CipherMode { cbc, ctr, gcm };

/// Algorithm, mode and key. The key is wiped at the end and when another takes its place. Copies are not made by
/// accident.
class _svSymSettings {
 public:
  _svSymSettings() = default;
  _svSymSettings(const _svSymSettings&) = delete;
  _svSymSettings& operator=(const _svSymSettings&) = delete;
  ~_svSymSettings();

  CipherMode m_mode = CipherMode::cbc;
  /// What GCM authenticates beside the next buffer: the same must be set to decrypt it. The other modes ignore it.
  std::string m_associatedData;
  /// Whether GCM binds each body of a tree to its type and place. False opens what was encrypted before it did.
  bool m_bindsBodies = true;

  /// AES-128, -192 or -256 by the size of the key: 16, 24 or 32 bytes; false for any other.
  bool setKey(std::string_view key);
  /// A key of `keyBits` derived from a password with PBKDF2 (HMAC-SHA-256). The same password, salt and count
  /// give the same key. False for a size that AES has not, or a count under 1.
  bool deriveKey(std::string_view password, std::string_view salt, int iterations, int keyBits);
  bool hasKey() const noexcept { return !m_key.isEmpty(); }
  /// Fixes the initialization vector, 16 bytes, in CBC. Without one every buffer gets a random one, which
  /// stands in front of the ciphertext. CTR and GCM always do that: under one key the same vector twice would
  /// give both texts away. False for any other size.
  bool setIv(std::string_view iv);

  std::string_view key() const noexcept { return m_key.view(); }
  std::string_view iv() const noexcept { return m_iv.view(); }

 private:
  bool deriveKeyOf(std::size_t size, std::string_view password, std::string_view salt, int iterations);

  DataBuffer m_key;
  DataBuffer m_iv;
};

/// Encrypts and decrypts whole buffers.
class _svCrypt {
 public:
  virtual ~_svCrypt() = default;
  /// `out` is replaced. False, with the reason logged and `out` empty, when it cannot be done.
  virtual bool encryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) = 0;
  /// A wrong key is found out for sure in GCM, most often by the padding in CBC, and never in CTR.
  virtual bool decryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) = 0;
};

/// AES: CBC with PKCS#7 padding, CTR, and GCM with a tag of 16 bytes behind the ciphertext. The vector in front is
/// 16 bytes long, in GCM 12. `in` and `out` may be the same buffer. No bytes decrypt to no bytes: an empty body
/// stays one.
class SymmetricCipher final : public _svCrypt {
 public:
  bool encryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) override;
  bool decryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out, LogBase& log) override;
};

}  // namespace mailtree
