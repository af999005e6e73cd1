// secure/displayed_fields.h - the header fields that mail clients display.
#pragma once

#include <algorithm>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Fields that a message has once (RFC 5322, 3.6) and that mail clients display. A layer with a different
/// value contradicts the display; of duplicates, it is unknown which one is displayed.
inline constexpr std::string_view kDisplayedFields[] = {"From", "Sender", "Reply-To", "To",
                                                        "Cc",   "Date",   "Subject"};

/// Whether a name is one of them, ignoring case.
inline bool isDisplayedField(std::string_view name) noexcept {
  return std::ranges::any_of(kDisplayedFields,
                             [name](std::string_view field) { return equalsNoCase(name, field); });
}

}  // namespace mailtree
