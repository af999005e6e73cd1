// cli/views/text_view.h - a message for people: the main header fields, the tree and the first lines
// of its text.
#pragma once

#include <iosfwd>

#include "cli/support/terminal.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

struct TextOptions {
  Style style;
  bool headers = false;  ///< Show every header field instead of the summary.
  bool verbose = false;  ///< Show the reason for each attachment and the name of each repair.
};

void writeText(std::ostream& out, mailtree::Message& message, const TextOptions& options);

}  // namespace mailtree::cli
