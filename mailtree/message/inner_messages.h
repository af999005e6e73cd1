// message/inner_messages.h - messages inside a message: attached ones, digest entries, and those
// nested in them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

struct InnerMessage {
  std::string number;    ///< "2", and "2/0" for the first one inside it.
  std::string part;      ///< The part that holds it, as numbered by show: "4", or "4/1" for a nested one.
  int depth;             ///< 0 for a message directly in the outer one.
  std::string filename;  ///< Of the part; empty when it has none.
  DataBuffer bytes;      ///< The message as received.
  MimeHeader header;     ///< Of the message itself.

  std::optional<_svEmailAddress> sender() const;
  std::string subject() const;
  std::optional<SorvikSysTime> date() const;
};

/// Iterates over the inner messages depth-first, an outer one before those inside it. A message is
/// parsed only when it may contain wanted ones; otherwise only its header is read.
class InnerMessages {
 public:
  /// @param outer   its attached messages are moved out.
  /// @param wanted  number of the only message wanted; others are not opened. Empty: all.
  explicit InnerMessages(Email2& outer, std::string wanted = {});
  /// The next message; null at the end. Borrowed until the next call; the caller may move from it.
  InnerMessage* next();
  /// Limits exceeded in the messages parsed so far.
  LimitSet limits() const noexcept { return m_limits; }

 private:
  bool mustOpen(const InnerMessage& message) const;
  void openMessage(InnerMessage& message);
  void add(Email2& tree, const InnerMessage* outer);

  std::string m_wanted;
  std::optional<InnerMessage> m_current;
  std::vector<InnerMessage> m_pending;  ///< The next message is last.
  LimitSet m_limits;
  LoadBudget m_budget;  ///< Shared by the outer message and all inside it.
};

}  // namespace mailtree
