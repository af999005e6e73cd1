// secure/field_meaning.h - compares header fields by meaning, not by spelling.
#pragma once

#include <string>

#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

/// The normalized value of a field, for comparison with another field of the same name. Addresses are
/// compared by display name and address, with the domain in lower case; dates as instants; in any other value
/// runs of white space count as one. Encoded words are decoded after the addresses are parsed. A value that
/// does not parse completely as addresses or a date is compared as text.
std::string comparedValue(const MimeHeader& header, int index);

}  // namespace mailtree
