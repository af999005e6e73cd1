// bench/loading.h - the whole job that is compared: parse, decode every leaf, convert text to utf-8, read subject,
// sender, recipients and date, and drop everything.
#pragma once

#include <cstddef>
#include <string>

#include "mailtree/email/Email2.h"

namespace mailtree::bench {

/// The first half of it, for those who go on with the tree.
EmailPtr load(const std::string& message);

/// @return something that depends on all of it, so that no compiler leaves any of it out.
std::size_t loadWithMailtree(const std::string& message);

/// Only where GMime is there.
std::size_t loadWithGmime(const std::string& message);

}  // namespace mailtree::bench
