#include "cli/writing/dropping.h"

#include <CLI/CLI.hpp>
#include <numeric>
#include <unordered_set>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/message/outline.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

using PartSet = std::unordered_set<const SorvikObject*>;

/// Collects the attachments to remove in `removed`; returns the problem, or an empty string.
std::string chooseAttachments(const DropOptions& options, Email2& email, PartSet& removed) {
  LogNull quiet;
  ExtPtrArray listed;
  email.attachmentIterate2(email.isMultipartMixedForAttachmentPurposes(), listed, /*target=*/-1, quiet);
  std::vector<int> numbers = options.attachments;
  if (options.allAttachments) {
    numbers.resize(static_cast<std::size_t>(listed.getSize()));
    std::iota(numbers.begin(), numbers.end(), 0);
  }
  std::string problem;
  for (const int number : numbers) {
    const SorvikObject* const part = listed.elementAt(number);
    if (!part)
      problem = "no attachment " + std::to_string(number);
    else if (part == &email)
      problem = "attachment " + std::to_string(number) + " is the whole message";
    removed.insert(part);
  }
  listed.removeAll();
  return problem;
}

bool holdsBody(Email2& item, const Outline& outline) {
  for (const PartRow& row : outline.rows)
    if (row.isBody && holds(item, *row.node)) return true;
  return false;
}

/// Uses the numbers of getRelatedItem, which the table shows. Those of dropRelatedItem differ when the first
/// part is not the HTML body: it counts the body, which must not be removed.
std::string chooseRelated(const DropOptions& options, Email2& email, PartSet& removed) {
  if (options.related.empty()) return {};
  LogNull quiet;
  const Outline outline = outlineOf(email);
  for (const int number : options.related) {
    Email2* const item = email.getRelatedItem(number, quiet);
    if (!item) return "no related item " + std::to_string(number);
    if (holdsBody(*item, outline))
      return "related item " + std::to_string(number) + " is the text of the message";
    removed.insert(item);
  }
  return {};
}

}  // namespace

void addDropOptions(CLI::App& verb, DropOptions& options) {
  CLI::Option* all = verb.add_flag("--drop-attachments", options.allAttachments, "Remove every attachment");
  wholeNumber(
      verb.add_option("--drop-attachment", options.attachments, "Remove the attachment with this number"))
      ->allow_extra_args(false)
      ->excludes(all);
  wholeNumber(verb.add_option("--drop-related", options.related, "Remove the related item with this number"))
      ->allow_extra_args(false);
}

Exit dropParts(const DropOptions& options, const std::string& file, Email2& email) {
  PartSet removed;
  std::string problem = chooseAttachments(options, email, removed);
  if (problem.empty()) problem = chooseRelated(options, email, removed);
  if (!problem.empty()) {
    reportError(file, problem);
    return Exit::negative;
  }
  if (!removed.empty()) removeNodes(email, removed);
  return Exit::fine;
}

}  // namespace mailtree::cli
