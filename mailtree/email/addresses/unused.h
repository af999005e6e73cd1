// email/addresses/unused.h - what a setter could not use of the text it was given, said in the log.
#pragma once

#include <string_view>

namespace mailtree {

class LogBase;

/// What a setter takes of a list of addresses: the first with an "@", or all.
enum class Taken { first, all };

/// An information line for each entry of the list that was not taken, or for a list without any.
void reportUnused(std::string_view list, Taken taken, LogBase& log);

/// An information line for a text that was not taken at all.
void reportUnusedText(std::string_view what, std::string_view text, LogBase& log);

}  // namespace mailtree
