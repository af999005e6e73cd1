// cli/views/text_view.h - a message for a person: who and what, the tree, the first lines of its text.
#pragma once

#include <iosfwd>

#include "cli/message/outline.h"
#include "cli/secure/verification.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {

struct TextOptions {
  Style style;
  bool headers = false;  ///< Every header field instead of the summary.
  bool verbose = false;  ///< The reason of each attachment, the name of each repair.
};

void writeText(std::ostream& out, Verification& verification, const TextOptions& options);

}  // namespace mailtree::cli
