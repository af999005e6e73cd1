// message/mailbox_key.h - what addresses are compared by.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Domains ignore case, local parts may not (RFC 5321, 2.4).
inline std::string mailboxKey(std::string_view address) {
  const std::size_t at = std::min(address.rfind('@'), address.size());
  return std::string(address.substr(0, at)) + lowerCase(address.substr(at));
}

}  // namespace mailtree
