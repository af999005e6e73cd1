#include "mailtree/crypto/SymmetricCipher.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

using Cipher = Handle<EVP_CIPHER, EVP_CIPHER_free>;
using CipherRun = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

constexpr std::size_t kBlock = 16;

struct Mode {
  CipherMode mode;
  const char* name;
  std::size_t ivSize;
  std::size_t tagSize;
};
constexpr Mode kModes[] = {
    {CipherMode::cbc, "CBC", kBlock, 0},
    {CipherMode::ctr, "CTR", kBlock, 0},
    {CipherMode::gcm, "GCM", 12, 16},
};

const Mode* modeOf(const _svSymSettings& settings) noexcept {
  const auto* const found = std::ranges::find(kModes, settings.m_mode, &Mode::mode);
  return found == std::end(kModes) ? nullptr : found;
}

bool isKeySize(std::size_t bytes) noexcept { return bytes == 16 || bytes == 24 || bytes == 32; }

/// Deliberate: a fixed vector is for CBC only. In CTR and GCM, using one twice reveals both texts.
bool isIvFixed(const _svSymSettings& settings) noexcept {
  return settings.m_mode == CipherMode::cbc && !settings.iv().empty();
}

const unsigned char* bytesOf(std::string_view text) noexcept {
  return reinterpret_cast<const unsigned char*>(text.data());
}

CipherRun start(const _svSymSettings& settings, const Mode& mode, const unsigned char* iv, bool encrypting) {
  const std::string name = "AES-" + std::to_string(settings.key().size() * 8) + "-" + mode.name;
  const Cipher cipher(EVP_CIPHER_fetch(contextAs<OSSL_LIB_CTX>(), name.c_str(), nullptr));
  CipherRun run(EVP_CIPHER_CTX_new());
  const bool started = cipher && run &&
                       EVP_CipherInit_ex2(run.get(), cipher.get(), bytesOf(settings.key()), iv,
                                          encrypting ? 1 : 0, nullptr) == 1;
  return started ? std::move(run) : nullptr;
}

/// Only a mode with a tag authenticates anything.
bool addAssociatedData(EVP_CIPHER_CTX& run, const _svSymSettings& settings, const Mode& mode) {
  const std::string_view data = settings.m_associatedData;
  if (!mode.tagSize || data.empty()) return true;
  int size = 0;
  return data.size() <= kMaxPerCall &&
         EVP_CipherUpdate(&run, nullptr, &size, bytesOf(data), static_cast<int>(data.size())) == 1;
}

/// Processes all of `in` and the last block; returns the bytes written to `out`,
/// nullopt when padding or tag are wrong.
std::optional<std::size_t> runAll(EVP_CIPHER_CTX& run, std::string_view in, unsigned char* out) {
  std::size_t written = 0;
  int size = 0;
  while (!in.empty()) {
    const std::string_view chunk = in.substr(0, kMaxPerCall);
    if (EVP_CipherUpdate(&run, out + written, &size, bytesOf(chunk), static_cast<int>(chunk.size())) != 1)
      return std::nullopt;
    written += static_cast<std::size_t>(size);
    in.remove_prefix(chunk.size());
  }
  if (EVP_CipherFinal_ex(&run, out + written, &size) != 1) return std::nullopt;
  return written + static_cast<std::size_t>(size);
}

bool encrypt(const _svSymSettings& settings, const Mode& mode, std::string_view in, DataBuffer& out) {
  std::array<unsigned char, kBlock> iv{};
  const bool isFixed = isIvFixed(settings);
  if (isFixed)
    std::ranges::copy(settings.iv(), iv.begin());
  else if (RAND_bytes_ex(contextAs<OSSL_LIB_CTX>(), iv.data(), mode.ivSize, 0) != 1)
    return false;

  const CipherRun run = start(settings, mode, iv.data(), /*encrypting=*/true);
  if (!run || !addAssociatedData(*run, settings, mode)) return false;
  if (!isFixed && !out.append(iv.data(), mode.ivSize)) return false;
  const std::size_t room = in.size() + kBlock;  // one block more: the padding, or the tag
  unsigned char* const bytes = out.appendUninitialized(room);
  const auto written = bytes ? runAll(*run, in, bytes) : std::nullopt;
  if (!written) return false;
  if (mode.tagSize && EVP_CIPHER_CTX_ctrl(run.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(mode.tagSize),
                                          bytes + *written) != 1)
    return false;
  out.shorten(room - *written - mode.tagSize);
  return true;
}

bool decrypt(const _svSymSettings& settings, const Mode& mode, std::string_view in, DataBuffer& out) {
  const bool isFixed = isIvFixed(settings);
  const std::size_t ivSize = isFixed ? 0 : mode.ivSize;
  if (in.size() < ivSize + mode.tagSize) return false;
  const std::string_view iv = isFixed ? settings.iv() : in.substr(0, ivSize);
  std::string tag(in.substr(in.size() - mode.tagSize));
  const std::string_view text = in.substr(ivSize, in.size() - ivSize - mode.tagSize);

  const CipherRun run = start(settings, mode, bytesOf(iv), /*encrypting=*/false);
  if (!run) return false;
  if (mode.tagSize &&
      EVP_CIPHER_CTX_ctrl(run.get(), EVP_CTRL_AEAD_SET_TAG, static_cast<int>(tag.size()), tag.data()) != 1)
    return false;
  if (!addAssociatedData(*run, settings, mode)) return false;
  const std::size_t room = text.size() + kBlock;
  unsigned char* const bytes = out.appendUninitialized(room);
  const auto written = bytes ? runAll(*run, text, bytes) : std::nullopt;
  if (!written) return false;
  out.shorten(room - *written);
  return true;
}

using Direction = bool (*)(const _svSymSettings&, const Mode&, std::string_view, DataBuffer&);

/// Runs one direction into a separate buffer, so no failure leaves partial text.
bool crypt(Direction direction, const char* failure, const _svSymSettings& settings, const DataBuffer& in,
           DataBuffer& out, LogBase& log) {
  return neverThrow(false, [&] {
    const QuietErrors quiet;
    DataBuffer result;
    const WipedAtEnd wiped(result);
    const Mode* const mode = modeOf(settings);
    const bool done = settings.hasKey() && mode && direction(settings, *mode, in.view(), result);
    out.clear();
    if (!done) {
      log.logError(settings.hasKey() ? failure : "No key set");
      return false;
    }
    out.takeData(result);
    return true;
  });
}

}  // namespace

_svSymSettings::~_svSymSettings() { wipe(m_key); }

bool _svSymSettings::setKey(std::string_view key) {
  if (!isKeySize(key.size())) return false;
  DataBuffer fresh;
  if (!fresh.append(key)) return false;
  wipe(m_key);
  m_key.takeData(fresh);
  return true;
}

bool _svSymSettings::deriveKey(std::string_view password, std::string_view salt, int iterations,
                               int keyBits) {
  if (iterations < 1 || keyBits < 0 || keyBits % 8 != 0) return false;
  const auto size = static_cast<std::size_t>(keyBits / 8);
  return isKeySize(size) && neverThrow(false, [&] { return deriveKeyOf(size, password, salt, iterations); });
}

bool _svSymSettings::deriveKeyOf(std::size_t size, std::string_view password, std::string_view salt,
                                 int iterations) {
  const QuietErrors quiet;
  const Handle<EVP_KDF, EVP_KDF_free> method(EVP_KDF_fetch(contextAs<OSSL_LIB_CTX>(), "PBKDF2", nullptr));
  const Handle<EVP_KDF_CTX, EVP_KDF_CTX_free> derivation(EVP_KDF_CTX_new(method.get()));
  std::array<unsigned char, 32> key{};
  // The library takes read-only data by pointers to non-const.
  char digest[] = "SHA256", none[] = "";
  const auto octets = [&](const char* name, std::string_view text) {
    return OSSL_PARAM_construct_octet_string(name, text.empty() ? none : const_cast<char*>(text.data()),
                                             text.size());
  };
  int anySize = 1;  // allows short salts and small counts: the caller decides
  auto count = static_cast<unsigned>(iterations);
  const OSSL_PARAM parameters[] = {
      octets(OSSL_KDF_PARAM_PASSWORD, password),
      octets(OSSL_KDF_PARAM_SALT, salt),
      OSSL_PARAM_construct_uint(OSSL_KDF_PARAM_ITER, &count),
      OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &anySize),
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
      OSSL_PARAM_construct_end(),
  };
  const bool isSet = derivation && EVP_KDF_derive(derivation.get(), key.data(), size, parameters) == 1 &&
                     setKey({reinterpret_cast<const char*>(key.data()), size});
  OPENSSL_cleanse(key.data(), key.size());
  return isSet;
}

bool _svSymSettings::setIv(std::string_view iv) {
  if (iv.size() != kBlock) return false;
  DataBuffer fresh;
  if (!fresh.append(iv)) return false;
  m_iv.takeData(fresh);
  return true;
}

bool SymmetricCipher::encryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out,
                                 LogBase& log) {
  return crypt(encrypt, "Encryption failed", settings, in, out, log);
}

bool SymmetricCipher::decryptAll(_svSymSettings& settings, const DataBuffer& in, DataBuffer& out,
                                 LogBase& log) {
  if (!settings.hasKey() || !in.isEmpty())
    return crypt(decrypt, "Decryption failed: wrong key or changed data", settings, in, out, log);
  out.clear();
  return true;
}

}  // namespace mailtree
