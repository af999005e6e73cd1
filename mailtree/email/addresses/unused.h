// email/addresses/unused.h - logs what a setter could not use of its argument.
#pragma once

#include <string_view>

namespace mailtree {

class LogBase;

/// What a setter uses of a list of addresses: the first with an "@", or all.
enum class UsedAddresses { first, all };

/// Logs an information line for each entry that was not used, or for a list without entries.
void reportUnused(std::string_view list, UsedAddresses used, LogBase& log);

/// Logs an information line for a text that was not used at all.
void reportUnusedText(std::string_view what, std::string_view text, LogBase& log);

}  // namespace mailtree
