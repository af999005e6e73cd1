// The cryptographic library makes the envelope without its content; the content is then encrypted straight to
// its place in the encoding.
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

using Cms = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;
using Bio = Handle<BIO, BIO_free_all>;

constexpr int kDefaultKeyBits = 256;
constexpr std::size_t kGcmTagSize = 16;

const struct {
  ContentCipher cipher;
  int keyBits;  // 0: any
  const EVP_CIPHER* (*make)();
} kCiphers[] = {
    {ContentCipher::aesCbc, 128, EVP_aes_128_cbc},   {ContentCipher::aesCbc, 192, EVP_aes_192_cbc},
    {ContentCipher::aesCbc, 256, EVP_aes_256_cbc},   {ContentCipher::aesGcm, 128, EVP_aes_128_gcm},
    {ContentCipher::aesGcm, 192, EVP_aes_192_gcm},   {ContentCipher::aesGcm, 256, EVP_aes_256_gcm},
    {ContentCipher::tripleDes, 0, EVP_des_ede3_cbc},
};

const EVP_CIPHER* findCipher(int cipher, int keyBits) noexcept {
  if (keyBits == 0) keyBits = kDefaultKeyBits;
  for (const auto& row : kCiphers)
    if (static_cast<int>(row.cipher) == cipher && (row.keyBits == 0 || row.keyBits == keyBits))
      return row.make();
  return nullptr;
}

bool isGcm(const EVP_CIPHER* cipher) { return EVP_CIPHER_get_mode(cipher) == EVP_CIPH_GCM_MODE; }

struct KeyTransportOptions {
  bool oaep;
  std::string oaepHash;
  bool bySubjectKeyId;
};

constexpr std::string_view kOtherSize = "The content does not have the announced size.";

bool setOaep(EVP_PKEY_CTX* options, const std::string& hash) {
  return options && EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_OAEP_PADDING) > 0 &&
         EVP_PKEY_CTX_set_rsa_oaep_md_name(options, hash.c_str(), nullptr) > 0 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md_name(options, hash.c_str(), nullptr) > 0;
}

bool addRecipient(CMS_ContentInfo* cms, const Certificate& certificate, const KeyTransportOptions& keyOptions,
                  LogBase& log) {
  auto* const native = nativeAs<X509>(certificate);
  const EVP_PKEY* const key = X509_get0_pubkey(native);
  const bool isRsa = key && EVP_PKEY_is_a(key, "RSA");
  if (!isRsa && !(key && EVP_PKEY_is_a(key, "EC"))) {
    log.LogDataSb("keyAlgorithm", certificate.keyAlgorithm());
    return failBuild(log,
                     "Cannot encrypt to a recipient with a key of this type: only RSA and EC are supported.");
  }
  const bool byKeyId = keyOptions.bySubjectKeyId && X509_get0_subject_key_id(native);
  CMS_RecipientInfo* const recipient =
      CMS_add1_recipient_cert(cms, native, CMS_KEY_PARAM | (byKeyId ? CMS_USE_KEYID : 0U));
  if (!recipient) return failBuildWithCryptoError(log, "Cannot encrypt to a recipient.");
  EVP_PKEY_CTX* const options = CMS_RecipientInfo_get0_pkey_ctx(recipient);
  // The library's own choice for EC would be sha1.
  const bool isSet = isRsa ? !keyOptions.oaep || setOaep(options, keyOptions.oaepHash)
                           : EVP_PKEY_CTX_set_ecdh_kdf_md(options, EVP_sha256()) > 0;
  return isSet || failBuildWithCryptoError(log, "Cannot encrypt to a recipient with the requested options.");
}

bool addRecipients(CMS_ContentInfo* cms, const ExtPtrArray& recipients, const KeyTransportOptions& keyOptions,
                   LogBase& log) {
  for (int i = 0; i < recipients.getSize(); ++i) {
    const Certificate* const certificate = CertificateHolder::getNthCert(recipients, i);
    if (!certificate) return failBuild(log, "A recipient has no certificate.");
    if (!addRecipient(cms, *certificate, keyOptions, log)) return false;
  }
  return recipients.getSize() > 0 || failBuild(log, "No recipients to encrypt to.");
}

/// Bytes of a source, encrypted straight to their place.
class Encryption {
 public:
  Encryption(EVP_CIPHER_CTX* cipher, unsigned char* out, std::size_t size) noexcept
      : m_cipher(cipher), m_out(out), m_left(size) {}

  /// Announced bytes still missing.
  std::size_t left() const noexcept { return m_left; }
  /// At most left() bytes.
  bool add(std::string_view bytes) {
    m_left -= bytes.size();
    while (!bytes.empty()) {
      const std::string_view piece = bytes.substr(0, kMaxPerCall);
      int written = 0;
      if (EVP_EncryptUpdate(m_cipher, m_out, &written, reinterpret_cast<const unsigned char*>(piece.data()),
                            static_cast<int>(piece.size())) != 1)
        return false;
      m_out += written;
      bytes.remove_prefix(piece.size());
    }
    return true;
  }
  /// Writes the last block.
  bool finish() {
    int written = 0;
    return EVP_EncryptFinal_ex(m_cipher, m_out, &written) == 1;
  }

 private:
  EVP_CIPHER_CTX* m_cipher;
  unsigned char* m_out;
  std::size_t m_left;
};

std::size_t encryptedSize(const EVP_CIPHER* cipher, std::size_t size) {
  const auto block = static_cast<std::size_t>(EVP_CIPHER_get_block_size(cipher));
  return block == 1 ? size : size / block * block + block;
}

bool readAll(_svDataSource& source, long long size, DataBuffer& text) {
  for (;;) {
    const auto piece = source.next();
    if (!piece) return false;
    if (piece->empty()) return static_cast<long long>(text.getSize()) == size;
    if (!appendWiping(text, *piece)) return false;
  }
}

/// A text whose line breaks become CRLF while it is read, without a copy.
class TextSource final : public _svDataSource {
 public:
  explicit TextSource(std::string_view text) noexcept : m_text(text) {}
  std::optional<std::string_view> next() override {
    const std::size_t bare = findBareLineEnd();
    if (bare == 0 && !m_text.empty()) {
      m_text.remove_prefix(1);
      return "\r\n";
    }
    const std::string_view piece = m_text.substr(0, bare);
    m_text.remove_prefix(piece.size());
    return piece;
  }
  /// Number of bytes still to read.
  std::size_t size() const {
    std::size_t total = 0;
    TextSource copy(m_text);
    for (auto piece = copy.next(); piece && !piece->empty(); piece = copy.next()) total += piece->size();
    return total;
  }

 private:
  std::size_t findBareLineEnd() const noexcept {
    for (std::size_t at = 0;; at += 2) {
      at = m_text.find_first_of("\r\n", at);
      if (at == std::string_view::npos || m_text.substr(at, 2) != "\r\n") return at;
    }
  }

  std::string_view m_text;
};

/// Encodes the envelope and encrypts the content into it. The cipher state comes from the library's filter,
/// which would otherwise process the content in pieces of four kilobytes.
bool encryptInto(CMS_ContentInfo* cms, const EVP_CIPHER* cipher, _svDataSource& content, std::size_t size,
                 DataBuffer& der, LogBase& log) {
  const Bio filter(CMS_dataInit(cms, nullptr));
  EVP_CIPHER_CTX* state = nullptr;
  if (!filter || BIO_get_cipher_ctx(filter.get(), &state) <= 0 || !state) return false;
  const std::size_t tagSize = isGcm(cipher) ? kGcmTagSize : 0;
  // Sets the version; the tag, not known yet, is inserted below.
  if (!tagSize && CMS_dataFinal(cms, filter.get()) != 1) return false;
  unsigned char* raw = nullptr;
  const int rawSize = i2d_CMS_ContentInfo(cms, &raw);
  if (rawSize <= 0) return false;
  const std::string bare(reinterpret_cast<const char*>(raw), static_cast<std::size_t>(rawSize));
  OPENSSL_free(raw);
  const auto frame = readPkcs7Frame(bare);
  const auto room = frame ? encodeWithRoom(*frame, encryptedSize(cipher, size), tagSize, der) : std::nullopt;
  if (!room) return false;
  Encryption encryption(state, room->content, size);
  for (;;) {
    const auto piece = content.next();
    if (!piece) return false;
    if (piece->empty()) break;
    if (piece->size() > encryption.left()) return failBuild(log, kOtherSize);
    if (!encryption.add(*piece)) return false;
  }
  if (encryption.left() > 0) return failBuild(log, kOtherSize);
  return encryption.finish() &&
         (!tagSize || EVP_CIPHER_CTX_ctrl(state, EVP_CTRL_AEAD_GET_TAG, kGcmTagSize, room->mac) == 1);
}

Cms makeEnvelope(const EVP_CIPHER* cipher) {
  auto* const context = contextAs<OSSL_LIB_CTX>();
  Cms cms(isGcm(cipher) ? CMS_AuthEnvelopedData_create_ex(cipher, context, nullptr)
                        : CMS_EnvelopedData_create_ex(cipher, context, nullptr));
  return cms;
}

}  // namespace

bool Pkcs7Builder::createPkcs7Enveloped(_svDataSource& content, long long size, bool binary, int cipher,
                                        int keyBits, ExtPtrArray& recipients, int keyTransport, int oaepHash,
                                        bool bySubjectKeyId, SystemCerts& /*certs*/, DataBuffer& der,
                                        LogBase& log) {
  der.clear();
  const QuietErrors quiet;
  const bool done = neverThrow(false, [&] {
    const EVP_CIPHER* const method = findCipher(cipher, keyBits);
    if (!method) return failBuild(log, "Unknown cipher or key length: nothing was encrypted.");
    const bool oaep = keyTransport == static_cast<int>(KeyTransport::oaep);
    if (!oaep && keyTransport != static_cast<int>(KeyTransport::pkcs1))
      return failBuild(log, "Unknown key transport: nothing was encrypted.");
    const KeyTransportOptions keyOptions{
        oaep, std::string(_svHash::nameOf(oaepHash ? oaepHash : static_cast<int>(HashId::sha256))),
        bySubjectKeyId};
    if (oaep && keyOptions.oaepHash.empty())
      return failBuild(log, "Unknown digest algorithm: nothing was encrypted.");
    if (size < 0) return failBuild(log, "The size of the content to encrypt is unknown.");
    const Cms cms = makeEnvelope(method);
    if (!cms) return failBuildWithCryptoError(log, "The cryptographic library cannot encrypt.");
    if (!addRecipients(cms.get(), recipients, keyOptions, log)) return false;
    if (binary)
      return encryptInto(cms.get(), method, content, static_cast<std::size_t>(size), der, log) ||
             failBuildWithCryptoError(log, "Cannot encrypt.");
    DataBuffer text;
    const WipedAtEnd wiped(text);
    if (!readAll(content, size, text)) return failBuild(log, "Cannot read the content to encrypt.");
    TextSource converted(text.view());
    return encryptInto(cms.get(), method, converted, converted.size(), der, log) ||
           failBuildWithCryptoError(log, "Cannot encrypt.");
  });
  if (!done) der.clear();
  return done;
}

}  // namespace mailtree
