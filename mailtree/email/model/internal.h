// email/model/internal.h - helpers for identifiers and dispositions.
#pragma once

#include <string_view>

#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class Email2;

/// Appends the part after the "@" of an identifier: the US-ASCII letters and digits of the computer name, or
/// "unknown" when it has none.
void appendIdentifierHost(std::string_view computerName, StringBuffer& out);

/// Clears disposition and file name. A text that was a file because of them is converted
/// to utf-8. (content_fields.cpp)
void clearDisposition(Email2& node);

}  // namespace mailtree
