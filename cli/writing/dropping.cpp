#include "cli/writing/dropping.h"

#include <algorithm>
#include <numeric>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/message/outline.h"

namespace mailtree::cli {
namespace {

/// Collects the parts to remove, or says why one cannot be.
class Dropped {
 public:
  Dropped(const DropOptions& options, mailtree::Message& message) : m_message(message) {
    addAttachments(options);
    addRelated(options);
  }

  const std::vector<mailtree::Part>& parts() const { return m_parts; }
  const std::string& problem() const { return m_problem; }

 private:
  void addAttachments(const DropOptions& options) {
    if (!options.allAttachments && options.attachments.empty()) return;
    const std::vector<mailtree::Part> listed = m_message.attachments();
    std::vector<int> numbers = options.attachments;
    if (options.allAttachments) {
      numbers.resize(listed.size());
      std::iota(numbers.begin(), numbers.end(), 0);
    }
    for (const int number : numbers) {
      const std::string name = "attachment " + std::to_string(number);
      if (static_cast<std::size_t>(number) >= listed.size())
        m_problem = "no " + name;
      else if (const mailtree::Part& part = listed[static_cast<std::size_t>(number)]; part.number() == 0)
        m_problem = name + " is the whole message";
      else
        m_parts.push_back(part);
    }
  }

  void addRelated(const DropOptions& options) {
    if (options.related.empty() || !m_problem.empty()) return;
    Email2& root = m_message.email2();
    const std::vector<int> listed = relatedItemsOf(root, outlineOf(root));
    const std::vector<mailtree::Part> all = m_message.parts();
    for (const int number : options.related) {
      const std::string name = "related item " + std::to_string(number);
      if (static_cast<std::size_t>(number) >= listed.size())
        m_problem = "no " + name;
      else if (const mailtree::Part& part = partOf(all, listed[static_cast<std::size_t>(number)]);
               holdsText(part))
        m_problem = name + " is the text of the message";
      else
        m_parts.push_back(part);
    }
  }

  static const mailtree::Part& partOf(const std::vector<mailtree::Part>& all, int row) {
    return all[static_cast<std::size_t>(row)];
  }

  bool holdsText(const mailtree::Part& item) const {
    return std::ranges::any_of(m_message.displayed(), [&](const mailtree::Part& shown) {
      return shown.isText() && (shown.id() + ".").starts_with(item.id() + ".");
    });
  }

  mailtree::Message& m_message;
  std::vector<mailtree::Part> m_parts;
  std::string m_problem;
};

}  // namespace

void addDropOptions(Verb verb, DropOptions& options) {
  const Option all = verb.addFlag("--drop-attachments", options.allAttachments, "Remove every attachment");
  verb.addNumber("--drop-attachment", options.attachments, "Remove the attachment with this number")
      .repeatable()
      .excludes(all);
  verb.addNumber("--drop-related", options.related, "Remove the related item with this number").repeatable();
}

Exit dropParts(const DropOptions& options, const std::string& file, mailtree::Message& message) {
  if (!options.any()) return Exit::fine;
  const Dropped dropped(options, message);
  const Result<void> done = dropped.problem().empty()
                                ? message.removeParts(dropped.parts())
                                : Result<void>(Error{ErrorCode::notFound, dropped.problem(), {}});
  if (done) return Exit::fine;
  reportError(file, done.error().message);
  return Exit::negative;
}

}  // namespace mailtree::cli
