// cli/views/security_badges.h - marks parts in the tree as signed, encrypted or not covered by a signature.
#pragma once

#include <vector>

#include "mailtree/message/outline.h"
#include "cli/secure/verification.h"
#include "cli/views/layers.h"

namespace mailtree::cli {

/// The badges of every row of the outline.
std::vector<std::vector<LayerSummary>> securityBadgesOf(const Outline& outline,
                                                        const Verification& verification);

}  // namespace mailtree::cli
