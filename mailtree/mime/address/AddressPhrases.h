// mime/address/AddressPhrases.h - the names and comments of an address list encoded in their places.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/mime/coding/EncodedWord.h"

namespace mailtree {

/// Renders a list (utf-8, on one line) with every name and comment that holds 8-bit text as encoded words.
/// Groups, separators, addresses and all ASCII stay as they are, addresses with 8-bit text too (RFC 6532).
/// Encoded words beside such text are encoded anew with it, so that nothing in them comes out as structure.
std::string encodePhrases(std::string_view list, const HeaderEncoding& encoding);

}  // namespace mailtree
