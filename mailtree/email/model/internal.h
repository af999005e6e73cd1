// email/model/internal.h - what identifiers are made of.
#pragma once

#include <string_view>

#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class Email2;

/// Appends what stands after the "@" of an identifier made on a computer of that name: its US-ASCII letters
/// and digits, or "unknown" when it has none.
void appendIdentifierHost(std::string_view computerName, StringBuffer& out);

/// Clears disposition and file name. A text that was a file by them becomes one like others: in utf-8.
/// (content_attributes.cpp)
void forgetDisposition(Email2& node);

}  // namespace mailtree
