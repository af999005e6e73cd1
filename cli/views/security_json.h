// cli/views/security_json.h - signed and encrypted layers as JSON.
#pragma once

#include "cli/support/json_values.h"
#include "mailtree/message/Security.h"

namespace mailtree::cli {

/// Details of the layers of a message, and the verdict.
Json securityOf(const Security& security);

}  // namespace mailtree::cli
