// cli/views/security_badges.h - marks parts in the tree as signed, encrypted or not covered by a signature.
#pragma once

#include <vector>

#include "cli/views/layers.h"
#include "mailtree/message/outline.h"

namespace mailtree::cli {

/// The badges of every row of the outline.
std::vector<std::vector<LayerSummary>> securityBadgesOf(const Outline& outline, const Security& security);

}  // namespace mailtree::cli
