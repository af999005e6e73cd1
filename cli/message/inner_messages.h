// cli/message/inner_messages.h - the messages inside a message: attached ones, digest entries, and those inside them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

struct InnerMessage {
  std::string number;    ///< "2", and "2/0" for the first one inside it.
  std::string part;      ///< The part that holds it, as show draws it: "4", "4/1" counted within that one.
  int depth;             ///< 0 for those in the message itself.
  std::string filename;  ///< As the part is called; empty when it is not.
  DataBuffer bytes;      ///< As it was received.
  MimeHeader header;     ///< Its own.

  std::optional<_svEmailAddress> sender() const;
  std::string subject() const;
  std::optional<SorvikSysTime> date() const;
};

/// Gives them in the order in which they stand, an outer one before those inside it. Only its header is read for
/// telling about a message. It is parsed once, and only when it can hold further ones and those are asked for.
class InnerMessages {
 public:
  /// @param outer   its attached messages are moved out of it.
  /// @param wanted  number of the only one that matters; the others are not looked into. Empty: all.
  explicit InnerMessages(Email2& outer, std::string wanted = {});
  /// The next one, borrowed until the next call, its bytes to be had; null at the end.
  InnerMessage* next();
  /// Limits met in those parsed so far.
  LimitSet limits() const noexcept { return m_limits; }

 private:
  bool isLookedInto(const InnerMessage& message) const;
  void lookInto(InnerMessage& message);
  void add(Email2& tree, const InnerMessage* outer);

  std::string m_wanted;
  std::optional<InnerMessage> m_current;
  std::vector<InnerMessage> m_pending;  ///< The next one last.
  LimitSet m_limits;
  LoadBudget m_budget;  ///< Of the outer message and all in it.
};

}  // namespace mailtree::cli
