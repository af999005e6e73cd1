// message/address_rules.h - checks of addresses to be set.
//
// The library reads real-world mail leniently. An address to be set is better questioned than guessed
// at, so every entry must be a complete address.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mailtree {

enum class AddressCount { one, several };

/// Checks an address, or a list such as "a@x, B <b@y>"; returns the problem with the entry, or nothing.
std::optional<std::string> addressProblem(std::string_view text, AddressCount count);
/// Checks an address without a name, such as "a@x".
std::optional<std::string> bareAddressProblem(std::string_view address);

}  // namespace mailtree
