// crypto/Hash.h - digest algorithms by name and number.
#pragma once

#include <string_view>

namespace mailtree {

/// Digest algorithms as numbered by the signature operations.
enum class HashId : int { unknown = 0, sha1 = 1, sha256 = 2, sha384 = 3, sha512 = 4, md5 = 5 };

class _svHash {
 public:
  /// The HashId of a name such as "SHA-256" or "sha 256": letter case, hyphens and blanks are ignored.
  /// Deliberate: null and the empty name are sha1, the traditional meaning of such a label.
  /// @return HashId::unknown for any other name, which cannot be used to sign.
  static int hashId(const char* name) noexcept;
  /// "sha1", "sha256", ...; empty for an unknown number.
  static std::string_view nameOf(int hashId) noexcept;
};

}  // namespace mailtree
