// cli/writing/addresses.h - checks of addresses that a user typed.
//
// The library reads real-world mail leniently. An address that a user typed is better questioned than guessed
// at, so every entry must be a complete address.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mailtree::cli {

enum class AddressCount { one, several };

/// Checks an address, or a list such as "a@x, B <b@y>"; returns the problem with the entry, or nothing.
std::optional<std::string> addressProblem(std::string_view text, AddressCount count);

}  // namespace mailtree::cli
