#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/provider.h>

#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

OSSL_LIB_CTX* makeContext() noexcept {
  const QuietErrors quiet;
  Handle<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context(OSSL_LIB_CTX_new());
  if (!context || !OSSL_PROVIDER_load(context.get(), "default")) return nullptr;
  // RC2 and single DES, which old mail and old PKCS#12 files are kept in. Where it is not installed, these stay
  // closed and all else works.
  OSSL_PROVIDER_load(context.get(), "legacy");
  return context.release();
}

}  // namespace

NativeContext* cryptoContext() noexcept {
  // Deliberate: never freed. Static objects that hold keys may outlive anything that could free it.
  static OSSL_LIB_CTX* const context = makeContext();
  return reinterpret_cast<NativeContext*>(context);
}

std::string lastCryptoError() {
  // The reason alone: the data beside it may quote what was being read.
  const unsigned long error = ERR_peek_last_error();
  const char* const reason = error ? ERR_reason_error_string(error) : nullptr;
  std::string text = reason ? reason : "unknown reason";
  ERR_clear_error();
  return text;
}

QuietErrors::QuietErrors() noexcept { ERR_set_mark(); }

QuietErrors::~QuietErrors() { ERR_pop_to_mark(); }

void wipe(DataBuffer& bytes) noexcept {
  // Bytes lent to the buffer are not its own to wipe. What it grew to and gave up again is wiped too.
  if (const std::size_t capacity = bytes.heapUsage())
    OPENSSL_cleanse(const_cast<unsigned char*>(bytes.getData2()), capacity);
  bytes.clear();
}

}  // namespace mailtree
