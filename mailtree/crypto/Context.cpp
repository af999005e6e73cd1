#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/provider.h>

#include <algorithm>
#include <new>

#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

OSSL_LIB_CTX* makeContext() {
  const QuietErrors quiet;
  Handle<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context(OSSL_LIB_CTX_new());
  if (!context || !OSSL_PROVIDER_load(context.get(), "default")) throw std::bad_alloc();
  // RC2 and single DES, used in old mail and old PKCS#12 files. If the provider is not installed, these
  // cannot be opened and all else works.
  OSSL_PROVIDER_load(context.get(), "legacy");
  return context.release();
}

/// An entry of the error queue: the error, and the source line that reported it.
struct ErrorEntry {
  unsigned long code = 0;
  const char* file = nullptr;
  int line = 0;

  static ErrorEntry last() noexcept {
    ErrorEntry entry;
    entry.code = ERR_peek_last_error_line(&entry.file, &entry.line);
    return entry;
  }
  bool operator==(const ErrorEntry&) const = default;
};

}  // namespace

NativeContext* cryptoContext() {
  // Deliberate: never freed. Static objects that hold keys may outlive any owner. When creation throws, the
  // next call tries again.
  static OSSL_LIB_CTX* const context = makeContext();
  return reinterpret_cast<NativeContext*>(context);
}

std::string lastCryptoError() {
  const ErrorEntry error = ErrorEntry::last();
  ERR_pop_to_mark();
  ERR_set_mark();  // removed at the end of the scope
  if (error.code == 0 || error == ErrorEntry::last()) return {};
  // The reason alone: the data with it may quote the input.
  const char* const reason = ERR_reason_error_string(error.code);
  return reason ? reason : "unknown reason";
}

QuietErrors::QuietErrors() noexcept { ERR_set_mark(); }

QuietErrors::~QuietErrors() { ERR_pop_to_mark(); }

void wipe(DataBuffer& bytes) noexcept {
  // Borrowed bytes are not wiped. Capacity left from a larger size is wiped too.
  if (const std::size_t capacity = bytes.heapUsage())
    OPENSSL_cleanse(const_cast<unsigned char*>(bytes.getData2()), capacity);
  bytes.clear();
}

bool appendWiping(DataBuffer& bytes, std::string_view more) {
  const std::size_t size = bytes.getSize();
  if (size + more.size() > bytes.heapUsage()) {
    DataBuffer greater;
    if (!greater.reserveMore(std::max(size * 2, size + more.size())) || !greater.append(bytes)) return false;
    wipe(bytes);
    bytes.takeData(greater);
  }
  return bytes.append(more);
}

}  // namespace mailtree
