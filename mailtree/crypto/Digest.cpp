#include "mailtree/crypto/Digest.h"

#include <openssl/evp.h>

#include <array>

#include "mailtree/crypto/internal.h"

namespace mailtree {

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  std::size_t size = 0;
  auto* const context = contextAs<OSSL_LIB_CTX>();
  if (EVP_Q_digest(context, "SHA256", nullptr, bytes.data(), bytes.size(), digest.data(), &size) != 1)
    return {};
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) {
    hex += kDigits[digest[i] >> 4];
    hex += kDigits[digest[i] & 15];
  }
  return hex;
}

}  // namespace mailtree
