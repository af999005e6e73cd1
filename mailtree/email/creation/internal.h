// email/creation/internal.h - helpers for fields, names and types of new parts.
#pragma once

#include <string_view>

#include "mailtree/email/internal.h"

namespace mailtree {

inline constexpr std::string_view kUnknownType = "application/octet-stream";

/// A new part, without the fields that only a message has. Null when memory ran out.
EmailPtr createPart(_svEmailCommon& common);

/// A path with one style of separators: if it has both, backslashes become slashes.
StringBuffer workingName(std::string_view path);
/// The file name for a header: the last component of a working name, on one line.
StringBuffer shortName(std::string_view workingName);

/// The media type for a name's extension: empty when unknown, kUnknownType when there is no extension.
std::string_view typeByName(std::string_view name) noexcept;

/// Sets type and name, without other parameters, and the transfer encoding for the type. An empty type leaves
/// the part without a Content-Type field.
void setTypeAndEncoding(Email2& part, std::string_view type, std::string_view name, LogBase& log);

}  // namespace mailtree
