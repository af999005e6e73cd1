#include "mailtree/crypto/Digest.h"

#include <openssl/evp.h>

#include <array>

namespace mailtree {

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) return {};
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(std::size_t{size} * 2);
  for (unsigned i = 0; i < size; ++i) {
    hex += kDigits[digest[i] >> 4];
    hex += kDigits[digest[i] & 15];
  }
  return hex;
}

}  // namespace mailtree
