// cli/writing/differences.h - differences between a message as received and as written.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// Lists where the bytes of two messages differ, one line per field, body or text between parts, such as
/// "part 2: base64 lines refolded". Parts are numbered depth-first; the message is 0. Empty when the
/// bytes are equal.
std::vector<std::string> differencesInBytes(std::string_view received, std::string_view written);

/// Lists in the same form what a mail client shows differently: decoded fields, types,
/// names, texts and files.
std::vector<std::string> displayedDifferences(Email2& received, Email2& written);

}  // namespace mailtree::cli
