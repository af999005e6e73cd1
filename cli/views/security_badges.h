// cli/views/security_badges.h - which parts of a drawn tree are signed, encrypted, or left out by a signature.
#pragma once

#include <vector>

#include "cli/message/outline.h"
#include "cli/secure/verification.h"
#include "cli/views/layers.h"

namespace mailtree::cli {

/// The badges of every row of the outline.
std::vector<std::vector<LayerSummary>> securityBadgesOf(const Outline& outline,
                                                        const Verification& verification);

}  // namespace mailtree::cli
