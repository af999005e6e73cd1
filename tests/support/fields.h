// tests/support/fields.h - header fields of a node as text, and whether they agree with its parsed members.
#pragma once

#include <string>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// Decoded value of the first field of that name; "(none)" without one.
std::string fieldOf(const Email2& node, const char* name);

/// Names of all fields in order.
std::vector<std::string> fieldNames(const Email2& node);

/// The header as it is written, in utf-8 encoded words.
std::string writtenHeader(const Email2& node);

/// Fields that say something else than the members parsed from them, separated by blanks: empty is good.
std::string disagreeingFields(const Email2& node);

}  // namespace mailtree
