// bench/loading.h - complete loading: parse, decode every leaf, convert text to utf-8, read subject, sender,
// recipients and date, destroy the tree.
#pragma once

#include <cstddef>
#include <string>

#include "mailtree/email/Email2.h"

namespace mailtree::bench {

/// Only parses and decodes.
EmailPtr load(const std::string& message);

/// Returns a checksum of the values read, which keeps the compiler from removing the work; 0 on failure.
std::size_t loadWithMailtree(const std::string& message);

/// Only available with GMime.
std::size_t loadWithGmime(const std::string& message);

}  // namespace mailtree::bench
