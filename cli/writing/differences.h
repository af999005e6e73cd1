// cli/writing/differences.h - what is different between a message as it was received and as it is written.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// Where the bytes of two MIME texts differ, a line for each field, body and text between parts, such as "part 2: base64
/// lines refolded". Parts are counted depth-first, the message being 0. Empty when the texts are the same.
std::vector<std::string> differencesInBytes(std::string_view received, std::string_view written);

/// What a reader would see differently, in such lines: fields, types, names, texts and files, each decoded.
std::vector<std::string> differencesToReader(Email2& received, Email2& written);

}  // namespace mailtree::cli
