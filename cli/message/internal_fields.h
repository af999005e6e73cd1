// cli/message/internal_fields.h - header fields that the library keeps for itself: they never leave through the command.
#pragma once

#include <algorithm>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree::cli {

/// The library writes these unless it is told to leave them out.
inline constexpr const char* kOmittedPrefix = "SVX-";
/// With those that it leaves out by itself.
inline constexpr const char* kInternalPrefixes[] = {kOmittedPrefix, "SVZ-"};

inline bool isInternalField(std::string_view name) {
  return std::ranges::any_of(kInternalPrefixes,
                             [name](std::string_view prefix) { return beginsWithNoCase(name, prefix); });
}

}  // namespace mailtree::cli
