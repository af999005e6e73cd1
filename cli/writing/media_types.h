// cli/writing/media_types.h - media types as a user gives them, and those that file names suggest.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// token of RFC 2045 (5.1).
bool isToken(std::string_view text);
bool isMediaType(std::string_view text);

/// The type of a file name's extension, whatever its case; empty for one that nobody knows.
std::string typeByName(const std::string& name);

}  // namespace mailtree::cli
