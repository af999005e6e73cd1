#include "mailtree/crypto/Digest.h"

#include <openssl/evp.h>

#include <array>
#include <new>

#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

const EVP_MD* fetchSha256() {
  const EVP_MD* found = EVP_MD_fetch(contextAs<OSSL_LIB_CTX>(), "SHA256", nullptr);
  return found ? found : throw std::bad_alloc();  // the next call tries again
}

}  // namespace

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  static const EVP_MD* const kSha256 = fetchSha256();  // fetching takes as long as the digest of a short text
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, kSha256, nullptr) != 1) return {};
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(std::size_t{size} * 2);
  for (std::size_t i = 0; i < size; ++i) {
    hex += kDigits[digest[i] >> 4];
    hex += kDigits[digest[i] & 15];
  }
  return hex;
}

}  // namespace mailtree
