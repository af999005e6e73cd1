// crypto/Digest.h - message digests.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// SHA-256 of the bytes as 64 lower-case hexadecimal digits; empty when the digest could not be computed.
std::string sha256Hex(std::string_view bytes);

}  // namespace mailtree
