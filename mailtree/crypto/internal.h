// crypto/internal.h - shared by the files of crypto/ only.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "mailtree/crypto/Certificate.h"
#include "mailtree/crypto/Wipe.h"

namespace mailtree {

/// Input size of one call of the cryptographic library: its sizes are ints.
inline constexpr std::size_t kMaxPerCall = std::size_t{1} << 30;

template <auto release>
struct Releases {
  template <class T>
  void operator()(T* object) const noexcept {
    release(object);
  }
};
/// Owner of an object of the cryptographic library, by the function that frees it.
template <class T, auto release>
using Handle = std::unique_ptr<T, Releases<release>>;

/// The library's object of a certificate; T is its type in the including file.
template <class T>
T* nativeAs(const Certificate& certificate) noexcept {
  return reinterpret_cast<T*>(certificate.native());
}
template <class T>
T* nativeKeyAs(const Certificate& certificate) noexcept {
  return reinterpret_cast<T*>(certificate.nativeKey());
}

struct NativeContext;
/// The library context of everything here, which includes the algorithms of old messages. Separate from the
/// host program's context, which stays unchanged. Made at the first call. Throws std::bad_alloc on failure,
/// and the next call tries again: a null context would be the host's.
NativeContext* cryptoContext();
template <class T>
T* contextAs() {
  return reinterpret_cast<T*>(cryptoContext());
}

/// The last error of the cryptographic library since the innermost QuietErrors began, as
/// text; empty when there is none. Call it only inside a QuietErrors: it removes the
/// errors of that scope and keeps earlier ones.
std::string lastCryptoError();

/// Removes, at the end of its scope, the errors that the cryptographic library queued in it: a failed attempt
/// is not an error, and the host program uses the same queue. The queue holds the last fifteen: put each of
/// several attempts in its own scope, or the host's errors are pushed out.
class QuietErrors {
 public:
  QuietErrors() noexcept;
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
  ~QuietErrors();
};

/// Appends; when the buffer is reallocated, wipes the old memory.
bool appendWiping(DataBuffer& bytes, std::string_view more);

}  // namespace mailtree
