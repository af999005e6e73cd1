// mime/address/AddressPhrases.h - encodes the names and comments of an address list in place.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/mime/coding/EncodedWord.h"

namespace mailtree {

/// Renders a list (utf-8, on one line) with every name and comment that holds 8-bit text as encoded words.
/// Groups, separators, addresses and all ASCII stay as they are, addresses with 8-bit text too (RFC 6532).
/// Encoded words next to such text are encoded again with it, so no decoded text is left as structure.
std::string encodePhrases(std::string_view list, const HeaderEncoding& encoding);

}  // namespace mailtree
