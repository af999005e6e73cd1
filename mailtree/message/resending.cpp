// message/resending.cpp - sends a message again, unchanged: only fields before its header tell by whom.
#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/received_form.h"

namespace mailtree {
namespace {

Result<void> addList(Message& block, const char* field, const std::vector<Address>& addresses) {
  return addresses.empty() ? Result<void>() : block.addHeader(field, textOf(addresses));
}

/// The lines of the Resent- fields (RFC 5322, 3.6.6), with the last line break.
Result<std::string> resentLines(const ResendOptions& options) {
  Message block;
  Result<void> done = addList(block, "Resent-From", {options.from});
  if (done) done = addList(block, "Resent-To", options.to);
  if (done) done = addList(block, "Resent-Cc", options.cc);
  if (done) done = addList(block, "Resent-Bcc", options.bcc);
  if (done) done = block.addHeader("Resent-Date", Date::now().text());
  if (done) done = block.addHeader("Resent-Message-ID", "<" + block.messageId() + ">");
  if (!done) return std::move(done).error();
  MimeHeader fields;
  fields.m_foldLongValues = true;
  fields.takeFieldsBeginningWith("Resent-", block.email2().m_header);
  StringBuffer lines;
  LogNull log;
  fields.getMimeHeader(lines, nullptr, kCpUtf8, /*isTop=*/true, log);
  return lines.extractString() + "\r\n";
}

/// The message without what may be before its header: empty lines and the separator of a mailbox file. When
/// it has no fields, an empty line ends the new ones.
std::string joinable(std::string_view message) {
  if (message.starts_with("From ")) message.remove_prefix(std::min(message.find('\n') + 1, message.size()));
  MimeHeader header;
  header.loadFromEntity(message);
  if (header.getNumFields() == 0) return "\r\n" + std::string(message);
  message.remove_prefix(std::min(message.find_first_not_of("\r\n"), message.size()));
  return std::string(message);
}

}  // namespace

Result<Message> Message::resend(const ResendOptions& options) const {
  if (trim(options.from.address).empty())
    return Error{ErrorCode::badValue, "resending needs a sender's address", "Resent-From"};
  if (options.to.empty() && options.cc.empty() && options.bcc.empty())
    return Error{ErrorCode::noRecipient, "nobody to send the message to", "Resent-To"};
  const Result<std::string> lines = resentLines(options);
  if (!lines) return lines.error();
  const Result<std::string> message = wholeMessage(*this);
  if (!message) return message.error();
  DataBuffer bytes;
  if (!bytes.append(*lines + joinable(*message))) return noMemory();
  Result<Message> resent = loadMessage(std::move(bytes), nullptr);
  if (resent) MessageState::of(*resent).answersEncrypted = m_state->answersEncrypted;
  return resent;
}

}  // namespace mailtree
