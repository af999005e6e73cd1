// cli/views/security_json.h - signed and encrypted layers as JSON.
#pragma once

#include "cli/secure/verification.h"
#include "cli/support/json_values.h"

namespace mailtree::cli {

/// Details of the layers of a message, and the verdict.
Json securityOf(const Verification& verification);

}  // namespace mailtree::cli
