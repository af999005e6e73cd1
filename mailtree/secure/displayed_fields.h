// secure/displayed_fields.h - the header fields by which a reader knows a message.
#pragma once

#include <algorithm>
#include <string_view>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Fields that a message has once (RFC 5322, 3.6) and that readers display. A layer that says otherwise contradicts
/// what is seen; where one stands twice, nobody knows which of the two is shown.
inline constexpr std::string_view kDisplayedFields[] = {"From", "Sender", "Reply-To", "To",
                                                        "Cc",   "Date",   "Subject"};

/// Whether a name is that of one of them, ignoring case.
inline bool isDisplayedField(std::string_view name) noexcept {
  return std::ranges::any_of(kDisplayedFields,
                             [name](std::string_view field) { return equalsNoCase(name, field); });
}

}  // namespace mailtree
