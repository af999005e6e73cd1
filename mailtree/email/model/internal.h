// email/model/internal.h - what identifiers are made of.
#pragma once

#include <string_view>

#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// Appends what stands after the "@" of an identifier made on a computer of that name: its US-ASCII letters
/// and digits, or "unknown" when it has none.
void appendIdentifierHost(std::string_view computerName, StringBuffer& out);

}  // namespace mailtree
