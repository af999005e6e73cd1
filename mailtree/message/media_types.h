// message/media_types.h - media types to be set, or that a file name suggests.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"

namespace mailtree {

bool isMediaType(std::string_view text);

/// The media type for a file name's extension, ignoring case; empty when unknown.
std::string typeByName(const std::string& name);

}  // namespace mailtree
