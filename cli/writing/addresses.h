// cli/writing/addresses.h - addresses as a user types them: checked before any goes into a message.
//
// The library reads what real mailers send and makes the best of it. Somebody who types an address is better
// served by a question than by a guess, so every entry must be an address in full and nothing may be left over.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mailtree::cli {

enum class AddressCount { one, several };

/// What is wrong with an address, or a list such as "a@x, B <b@y>", entry included; nothing when it is good.
std::optional<std::string> whyBadAddresses(std::string_view text, AddressCount count);

}  // namespace mailtree::cli
