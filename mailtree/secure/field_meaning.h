// secure/field_meaning.h - header fields compared by what they say, not by how they are written.
#pragma once

#include <string>

#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

/// A field's value as it is compared with that of another field of the same name. Addresses count by display name and
/// address, the domain without letter case; dates as instants; in any other value white space is folded. Encoded words
/// are decoded first. What cannot be read as addresses or a date, wholly, is compared as text.
std::string comparedValue(const MimeHeader& header, int index);

}  // namespace mailtree
