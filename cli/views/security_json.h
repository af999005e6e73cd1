// cli/views/security_json.h - signed and encrypted layers for programs.
#pragma once

#include "cli/secure/verification.h"
#include "cli/support/json_values.h"

namespace mailtree::cli {

/// What is known of the layers of a message, with the verdict.
Json securityOf(const Verification& verification);

}  // namespace mailtree::cli
