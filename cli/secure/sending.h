// cli/secure/sending.h - a message made ready to be signed or encrypted.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/input.h"

namespace mailtree::cli {

/// Loads a message whose bytes are to be signed or encrypted: layers stay on, and fields go that must not be
/// inside, which are the library's own and Bcc. Its hidden recipients stay known to the message. Nothing after a
/// complaint.
std::optional<Message> loadToSecure(const std::string& path);

struct Recipient {
  const char* field;
  std::string address;
};

/// Everybody in To, Cc and Bcc, in this order.
std::vector<Recipient> recipientsOf(const Email2& email);

}  // namespace mailtree::cli
