// secure/symmetric.cpp - encrypts every body of a tree in place under one key. Tree and
// header fields stay readable.

#include <string>

#include "mailtree/crypto/SymmetricCipher.h"
#include "mailtree/crypto/Wipe.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/EncryptedBody.h"
#include "mailtree/mime/coding/ContentCoding.h"

namespace mailtree {
namespace {

/// The walk recurses. Loaded trees are much shallower; a deeper one was built by a program.
constexpr int kMaxCipherDepth = 1'000;

/// One pass over a tree under one key.
class Pass {
 public:
  Pass(SymmetricCipher& cipher, _svSymSettings& settings, LogBase& log) noexcept
      : m_cipher(cipher), m_settings(settings), m_log(log) {}
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;
  ~Pass() { m_settings.m_associatedData.clear(); }

  bool encrypt(Email2& node, int depth);
  bool decrypt(Email2& node, bool isBinary, int depth);

 private:
  bool bindsBodies() const noexcept {
    return m_settings.m_mode == CipherMode::gcm && m_settings.m_bindsBodies;
  }
  void bindNextBody(const Email2& node);
  bool encryptBody(Email2& node);
  bool decryptTo(const DataBuffer& body, bool isBinary, DataBuffer& plain);
  bool decryptBody(Email2& node, bool isBinary);

  SymmetricCipher& m_cipher;
  _svSymSettings& m_settings;
  LogBase& m_log;
  int m_bodies = 0;
};

/// Passes type and position as associated data (AAD), so a body that was moved, or whose type was
/// changed, does not decrypt.
void Pass::bindNextBody(const Email2& node) {
  ++m_bodies;
  if (!bindsBodies()) return;
  StringBuffer type = copyOf(node.m_contentType.m_type);
  type.toLowerCase();
  m_settings.m_associatedData.assign(trim(type.view())).append(" ").append(std::to_string(m_bodies));
}

bool Pass::encryptBody(Email2& node) {
  if (node.m_body.isEmpty()) return true;
  bindNextBody(node);
  DataBuffer ciphertext;
  StringBuffer text;
  if (!m_cipher.encryptAll(m_settings, node.m_body, ciphertext, m_log) ||
      !ContentCoding::encodeBase64(ciphertext.getData2(), ciphertext.getSize(), text))
    return false;
  DataBuffer body;
  if (!body.append(text)) return false;
  wipe(node.m_body);
  node.m_body.takeData(body);
  const StringBuffer original = copyOf(node.m_transferEncoding);
  node.setHeaderField_a(kOriginalEncodingField, original.getString(), /*asGiven=*/false, m_log);
  setTransferEncoding(node, "base64", m_log);
  return true;
}

bool Pass::encrypt(Email2& node, int depth) {
  if (!node.isLive() || depth >= kMaxCipherDepth || !encryptBody(node)) return false;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (Email2* const part = node.getPart(i); part && !encrypt(*part, depth + 1)) return false;
  return true;
}

bool Pass::decryptTo(const DataBuffer& body, bool isBinary, DataBuffer& plain) {
  if (isBinary || !ContentCoding::isBase64(body.view()))
    return m_cipher.decryptAll(m_settings, body, plain, m_log);
  DataBuffer ciphertext;
  return ContentCoding::decodeBase64ToDb(body.view(), ciphertext) &&
         m_cipher.decryptAll(m_settings, ciphertext, plain, m_log);
}

void restoreEncoding(Email2& node, LogBase& log) {
  StringBuffer original;
  node.getHeaderFieldUtf8(kOriginalEncodingField, original, log);
  setTransferEncoding(node, original.getString(), log);
  node.setHeaderField_a(kOriginalEncodingField, nullptr, /*asGiven=*/false, log);
}

/// An empty body was not encrypted, so there is no original encoding to restore.
bool wasNotEncrypted(const Email2& node) noexcept {
  return node.m_body.isEmpty() && node.m_header.findField(kOriginalEncodingField) < 0;
}

bool Pass::decryptBody(Email2& node, bool isBinary) {
  if (wasNotEncrypted(node)) return true;
  bindNextBody(node);
  DataBuffer plain;
  // GCM ciphertext is never empty, so an empty body was removed.
  const bool isRemoved = node.m_body.isEmpty() && bindsBodies();
  if (isRemoved) m_log.logError("An encrypted body is missing");
  if (isRemoved || (!node.m_body.isEmpty() && !decryptTo(node.m_body, isBinary, plain))) return false;
  node.m_body.takeData(plain);
  restoreEncoding(node, m_log);
  return true;
}

bool Pass::decrypt(Email2& node, bool isBinary, int depth) {
  if (!node.isLive() || depth >= kMaxCipherDepth) return false;
  LogContextExitor context(m_log, "email_aesDecrypt");
  if (!decryptBody(node, isBinary)) return false;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (Email2* const part = node.getPart(i); part && !decrypt(*part, isBinary, depth + 1)) return false;
  return true;
}

}  // namespace

bool Email2::aesStandardEncryptAnsi(SymmetricCipher& cipher, _svSymSettings& settings, LogBase& log) {
  return neverThrow(false, [&] { return Pass(cipher, settings, log).encrypt(*this, /*depth=*/0); });
}

bool Email2::aesStandardDecryptAnsi(SymmetricCipher& cipher, bool bodyIsBinary, _svSymSettings& settings,
                                    LogBase& log) {
  return neverThrow(false,
                    [&] { return Pass(cipher, settings, log).decrypt(*this, bodyIsBinary, /*depth=*/0); });
}

}  // namespace mailtree
