// crypto/internal.h - what the files of crypto/ share and nobody else sees.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "mailtree/crypto/Certificate.h"
#include "mailtree/crypto/Wipe.h"

namespace mailtree {

/// Bytes that one call of the cryptographic library takes: its sizes are ints.
inline constexpr std::size_t kMostPerCall = std::size_t{1} << 30;

template <auto release>
struct Releases {
  template <class T>
  void operator()(T* object) const noexcept {
    release(object);
  }
};
/// Owner of an object of the cryptographic library, by the function that releases it.
template <class T, auto release>
using Handle = std::unique_ptr<T, Releases<release>>;

/// The library's own object behind a certificate; T is the type that the including file knows it by.
template <class T>
T* nativeAs(const Certificate& certificate) noexcept {
  return reinterpret_cast<T*>(certificate.native());
}
template <class T>
T* nativeKeyAs(const Certificate& certificate) noexcept {
  return reinterpret_cast<T*>(certificate.nativeKey());
}

struct NativeContext;
/// The context that everything here runs in: the algorithms of old messages beside today's. Its own, so that the
/// host program's stays as the host set it up. Made at the first call. Throws std::bad_alloc when that failed, and
/// the next call tries again: a null context would be the host's.
NativeContext* cryptoContext();
template <class T>
T* contextAs() {
  return reinterpret_cast<T*>(cryptoContext());
}

/// What the cryptographic library says went wrong last since the innermost QuietErrors began, in words; empty when
/// nothing did. To be called inside of one only: takes that scope's errors back, and leaves those before it.
std::string lastCryptoError();

/// Takes back, at the end of its scope, what the cryptographic library noted as errors in it: what was only tried
/// is nobody's error, and the host program reads the same list. The list holds the last fifteen: whoever tries
/// several things in a row puts each in a scope of its own, or the host's are pushed out.
class QuietErrors {
 public:
  QuietErrors() noexcept;
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
  ~QuietErrors();
};

/// Appends, and wipes what the buffer outgrows: nothing of it stays behind in memory that was given back.
bool appendWiping(DataBuffer& bytes, std::string_view more);

}  // namespace mailtree
