// message/answer_recipients.h - who gets an answer, and which conversation it belongs to.
#pragma once

#include <string>
#include <vector>

#include "mailtree/message/Message.h"

namespace mailtree {

struct AnswerRecipients {
  std::vector<Address> to, cc;
};

/// The recipients of a reply, each once. Entries that no envelope takes are left out. noRecipient when nobody
/// remains.
Result<AnswerRecipients> replyRecipients(const Message& answered, const ReplyOptions& options);

/// The identifiers for References: the conversation so far, and the answered message last.
std::vector<std::string> answerReferences(const Message& answered);

/// The identifier for In-Reply-To; empty when the message has none that can be written.
std::string answeredId(const Message& answered);

}  // namespace mailtree
