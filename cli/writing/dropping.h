// cli/writing/dropping.h - attachments and related items taken out of a message by their numbers.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

struct DropOptions {
  std::vector<int> attachments;  ///< As `mailtree attachments` numbers them.
  std::vector<int> related;      ///< As `mailtree related` does.
  bool allAttachments = false;

  bool any() const { return allAttachments || !attachments.empty() || !related.empty(); }
};

void addDropOptions(CLI::App& verb, DropOptions& options);

/// Numbers are those of the message as it was given: all are looked up before anything goes. negative, after a
/// complaint, when one is not there or holds what must stay.
Exit dropParts(const DropOptions& options, const std::string& file, Email2& email);

}  // namespace mailtree::cli
