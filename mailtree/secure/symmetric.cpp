// secure/symmetric.cpp - every body of a tree encrypted in place under one key. Tree and header fields stay readable.

#include "mailtree/crypto/SymmetricCipher.h"
#include "mailtree/crypto/Wipe.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/ContentCoding.h"

namespace mailtree {
namespace {

constexpr const char* kOriginalEncoding = "x-original-encoding";
/// The walk recurses. Loading stays far below; a tree deeper than this was made by hand.
constexpr int kMaxCipherDepth = 1'000;

bool encryptBody(Email2& node, SymmetricCipher& cipher, _svSymSettings& settings, LogBase& log) {
  if (node.m_body.isEmpty()) return true;
  DataBuffer ciphertext;
  StringBuffer text;
  if (!cipher.encryptAll(settings, node.m_body, ciphertext, log) ||
      !ContentCoding::encodeBase64(ciphertext.getData2(), ciphertext.getSize(), text))
    return false;
  DataBuffer body;
  if (!body.append(text)) return false;
  wipe(node.m_body);
  node.m_body.takeData(body);
  const StringBuffer original = copyOf(node.m_transferEncoding);
  node.setHeaderField_a(kOriginalEncoding, original.getString(), /*asGiven=*/false, log);
  setTransferEncoding(node, "base64", log);
  return true;
}

bool encrypt(Email2& node, SymmetricCipher& cipher, _svSymSettings& settings, int depth, LogBase& log) {
  if (!node.isLive() || depth >= kMaxCipherDepth || !encryptBody(node, cipher, settings, log)) return false;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (Email2* const part = node.getPart(i); part && !encrypt(*part, cipher, settings, depth + 1, log))
      return false;
  return true;
}

bool decryptTo(const DataBuffer& body, bool isBinary, SymmetricCipher& cipher, _svSymSettings& settings,
               DataBuffer& plain, LogBase& log) {
  if (isBinary || !ContentCoding::isBase64(body.view())) return cipher.decryptAll(settings, body, plain, log);
  DataBuffer ciphertext;
  return ContentCoding::decodeBase64ToDb(body.view(), ciphertext) &&
         cipher.decryptAll(settings, ciphertext, plain, log);
}

void restoreEncoding(Email2& node, LogBase& log) {
  StringBuffer original;
  node.getHeaderFieldUtf8(kOriginalEncoding, original, log);
  setTransferEncoding(node, original.getString(), log);
  node.setHeaderField_a(kOriginalEncoding, nullptr, /*asGiven=*/false, log);
}

/// What was empty was not encrypted: it has no former encoding to go back to either.
bool wasLeftAlone(const Email2& node) noexcept {
  return node.m_body.isEmpty() && node.m_header.findField(kOriginalEncoding) < 0;
}

bool decryptBody(Email2& node, bool isBinary, SymmetricCipher& cipher, _svSymSettings& settings,
                 LogBase& log) {
  if (wasLeftAlone(node)) return true;
  DataBuffer plain;
  if (!node.m_body.isEmpty() && !decryptTo(node.m_body, isBinary, cipher, settings, plain, log)) return false;
  node.m_body.takeData(plain);
  restoreEncoding(node, log);
  return true;
}

bool decrypt(Email2& node, bool isBinary, SymmetricCipher& cipher, _svSymSettings& settings, int depth,
             LogBase& log) {
  if (!node.isLive() || depth >= kMaxCipherDepth) return false;
  LogContextExitor context(log, "email_aesDecrypt");
  if (!decryptBody(node, isBinary, cipher, settings, log)) return false;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (Email2* const part = node.getPart(i);
        part && !decrypt(*part, isBinary, cipher, settings, depth + 1, log))
      return false;
  return true;
}

}  // namespace

bool Email2::aesStandardEncryptAnsi(SymmetricCipher& cipher, _svSymSettings& settings, LogBase& log) {
  return neverThrow(false, [&] { return encrypt(*this, cipher, settings, /*depth=*/0, log); });
}

bool Email2::aesStandardDecryptAnsi(SymmetricCipher& cipher, bool bodyIsBinary, _svSymSettings& settings,
                                    LogBase& log) {
  return neverThrow(false, [&] { return decrypt(*this, bodyIsBinary, cipher, settings, /*depth=*/0, log); });
}

}  // namespace mailtree
