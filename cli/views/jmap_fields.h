// cli/views/jmap_fields.h - header fields as properties of an Email object (RFC 8621, 4.1.2 and 4.1.3).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree::cli {

enum class FieldForm { raw, text, addresses, groupedAddresses, messageIds, date, urls };

/// Appends as JSON the value of the last field of this name; null when there is none, or it does not have
/// this form.
void appendJmapField(std::string& out, const MimeHeader& header, std::string_view name, FieldForm form);
/// Appends the value of a property such as "header:List-Post:asURLs:all", which has no problem.
void appendJmapProperty(std::string& out, const MimeHeader& header, std::string_view property);
/// The value of a property for a table: a text as it is; a list as JSON; empty for null.
std::string jmapCellOf(const MimeHeader& header, std::string_view property);
/// Why this is no such property; empty when it is one.
std::string problemOfJmapProperty(std::string_view property);

/// Appends a list of texts; null when there are none.
void appendJmapWords(std::string& out, const std::vector<std::string>& words);
/// Appends name and raw value of every field, in order.
void appendJmapHeaders(std::string& out, const MimeHeader& header);

}  // namespace mailtree::cli
