// cli/views/jmap_fields.h - header fields as properties of an Email object (RFC 8621, 4.1.2 and 4.1.3).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree::cli {

enum class FieldForm { raw, text, addresses, groupedAddresses, messageIds, date, urls };

/// As JSON: the value of the last field of this name; null when there is none, or it does not have this form.
std::string jmapFieldOf(const MimeHeader& header, std::string_view name, FieldForm form);
/// The value of a property such as "header:List-Post:asURLs:all", which has no problem.
std::string jmapPropertyOf(const MimeHeader& header, std::string_view property);
/// The same for a table: a text as it is; a list as JSON; empty for null.
std::string jmapCellOf(const MimeHeader& header, std::string_view property);
/// Why this is no such property; empty when it is one.
std::string problemOfJmapProperty(std::string_view property);

/// A list of texts; null when there are none.
std::string jmapWordsOf(const std::vector<std::string>& words);
/// Name and raw value of every field, in order.
std::string jmapHeadersOf(const MimeHeader& header);

}  // namespace mailtree::cli
