// cli/writing/dropping.h - removing attachments and related items by number.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

class Verb;

struct DropOptions {
  std::vector<int> attachments;  ///< Numbers as in `mailtree attachments`.
  std::vector<int> related;      ///< Numbers as in `mailtree related`.
  bool allAttachments = false;

  bool any() const { return allAttachments || !attachments.empty() || !related.empty(); }
};

void addDropOptions(Verb verb, DropOptions& options);

/// Removes the parts. All numbers refer to the message before any removal. negative, after reporting an
/// error, when a part does not exist or must be kept.
Exit dropParts(const DropOptions& options, const std::string& file, mailtree::Message& message);

}  // namespace mailtree::cli
