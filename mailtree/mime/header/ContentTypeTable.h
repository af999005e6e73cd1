// mime/header/ContentTypeTable.h - media types by file extension, and usual extensions by media type.
#pragma once

#include <string_view>

namespace mailtree {

/// The table entry by entry: a media type at each even index, its extension (lower case, no dot) at the next
/// odd one. An index out of range gives an empty string, never null.
const char* svMimeContentType(int index) noexcept;

/// The usual extension of a media type, ignoring case; empty when the table does not have the type.
std::string_view extensionOfContentType(std::string_view type) noexcept;
/// The usual media type of an extension without its dot, ignoring case; empty when the table does not have
/// it.
std::string_view contentTypeOfExtension(std::string_view extension) noexcept;

}  // namespace mailtree
