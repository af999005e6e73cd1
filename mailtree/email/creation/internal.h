// email/creation/internal.h - what the files that make parts share: fields, names and types of a new part.
#pragma once

#include <string_view>

#include "mailtree/email/internal.h"

namespace mailtree {

inline constexpr std::string_view kUnknownType = "application/octet-stream";

/// A new part of a message: without the fields that only a message has. Null when memory ran out.
EmailPtr createPart(_svEmailCommon& common);

/// A path in one style of separators: with both in it, the backslashes are taken for slashes.
StringBuffer workingName(std::string_view path);
/// What a file is called in a header: the last component of a working name, on one line.
StringBuffer shortName(std::string_view workingName);

/// The type of a name's extension: empty for one that nobody knows, kUnknownType for a name without any.
std::string_view typeByName(std::string_view name) noexcept;

/// Sets type and name, with no other parameter, and the transfer encoding that goes with the type. An empty type
/// leaves the part without a Content-Type field.
void setTypeAndEncoding(Email2& part, std::string_view type, std::string_view name, LogBase& log);

}  // namespace mailtree
