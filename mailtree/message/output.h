// message/output.h - a tree of parts as bytes, and the envelope it travels in.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"
#include "mailtree/message/Message.h"

namespace mailtree {

/// Keeps only the last error: the full log of a deep tree is larger than the tree.
class ErrorLog final : public LogBase {
 public:
  void logError(std::string_view text) override { m_error = text; }
  void logInfo(std::string_view) override {}
  void LogDataSb(std::string_view, std::string_view) override {}
  void LogDataLong(std::string_view, std::int64_t) override {}
  void openContext(std::string_view) override {}
  void closeContext() override {}
  std::string errorOr(std::string_view otherwise) const {
    return m_error.empty() ? std::string(otherwise) : m_error;
  }

 private:
  std::string m_error;
};

/// Writes a tree without the fields internal to the library. False when it is incomplete. The Bcc field is
/// written as it is: Message hides it.
/// @param sink  where to write; when null, `text` receives the message, which is then not dot-stuffed.
bool assembleTree(Email2& root, const WriteOptions& options, _svOutput* sink, StringBuffer& text,
                  LogBase& log);

/// The envelope for sending a message.
Envelope envelopeOf(const Email2& root);

/// A recipient, by the field that names it.
struct Recipient {
  const char* field;
  std::string address;
};
/// Those of the latest resending; nothing when the message was never resent.
std::optional<std::vector<Recipient>> resentRecipientsOf(const Email2& root);

}  // namespace mailtree
