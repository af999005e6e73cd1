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
  std::string part;      ///< The part that holds it, numbered as by show: "4", or "4/1" for a nested one.
  int depth;             ///< 0 directly in the outer message.
  std::string filename;  ///< Of the part; empty when it has none.
  DataBuffer bytes;      ///< The message as received.
  MimeHeader header;     ///< Of the message itself.

  std::optional<_svEmailAddress> sender() const;
  std::string subject() const;
  std::optional<SorvikSysTime> date() const;
};

/// Iterates over the inner messages in document order, an outer one before those inside it. A message is
/// parsed only when it may hold further ones that are wanted; otherwise only its header is read.
class InnerMessages {
 public:
  /// @param outer   the attached messages are moved out of it.
  /// @param wanted  number of the only message wanted; others are not opened. Empty: all.
  explicit InnerMessages(Email2& outer, std::string wanted = {});
  /// The next message, borrowed until the next call, which may be moved from; null at the end.
  InnerMessage* next();
  /// Limits exceeded in the messages parsed so far.
  LimitSet limits() const noexcept { return m_limits; }

 private:
  bool mustOpen(const InnerMessage& message) const;
  void openMessage(InnerMessage& message);
  void add(Email2& tree, const InnerMessage* outer);

  std::string m_wanted;
  std::optional<InnerMessage> m_current;
  std::vector<InnerMessage> m_pending;  ///< In reverse order.
  LimitSet m_limits;
  LoadBudget m_budget;  ///< Shared by the outer message and all inside it.
};

}  // namespace mailtree
