// cli/views/security_json.h - signed and encrypted layers as JSON.
#pragma once

#include <string>

#include "mailtree/message/Security.h"

namespace mailtree::cli {

/// An object: details of the layers of a message, and the verdict.
std::string securityOf(const Security& security);

}  // namespace mailtree::cli
