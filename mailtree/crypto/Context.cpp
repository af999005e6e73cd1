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
  // RC2 and single DES, which old mail and old PKCS#12 files are kept in. Where it is not installed, these stay
  // closed and all else works.
  OSSL_PROVIDER_load(context.get(), "legacy");
  return context.release();
}

/// An entry of the list of errors: what went wrong, and which line said so.
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
  // Deliberate: never freed. Static objects that hold keys may outlive anything that could free it.
  // One whose making throws is not made, and is tried again at the next call.
  static OSSL_LIB_CTX* const context = makeContext();
  return reinterpret_cast<NativeContext*>(context);
}

std::string lastCryptoError() {
  const ErrorEntry error = ErrorEntry::last();
  ERR_pop_to_mark();
  ERR_set_mark();  // which the scope takes away at its end
  if (error.code == 0 || error == ErrorEntry::last()) return {};
  // The reason alone: the data beside it may quote what was being read.
  const char* const reason = ERR_reason_error_string(error.code);
  return reason ? reason : "unknown reason";
}

QuietErrors::QuietErrors() noexcept { ERR_set_mark(); }

QuietErrors::~QuietErrors() { ERR_pop_to_mark(); }

void wipe(DataBuffer& bytes) noexcept {
  // Bytes lent to the buffer are not its own to wipe. What it grew to and gave up again is wiped too.
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
