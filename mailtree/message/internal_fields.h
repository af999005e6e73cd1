// message/internal_fields.h - header fields internal to the library, which are never written.
#pragma once

#include <algorithm>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// The library writes these unless told to omit them.
inline constexpr const char* kOmittedPrefix = "SVX-";
/// These and the ones that the library always omits.
inline constexpr const char* kInternalPrefixes[] = {kOmittedPrefix, "SVZ-"};

inline bool isInternalField(std::string_view name) {
  return std::ranges::any_of(kInternalPrefixes,
                             [name](std::string_view prefix) { return beginsWithNoCase(name, prefix); });
}

}  // namespace mailtree
