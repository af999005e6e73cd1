// message/reading.cpp - what the header of a message says, and its parts.
#include <algorithm>
#include <charconv>

#include "mailtree/email/loading/received_date.h"
#include "mailtree/message/internal.h"

namespace mailtree {
namespace {

/// -1 for anything but a number.
int numberIn(std::string_view digits) {
  const char* const end = digits.data() + digits.size();
  int number = -1;
  const auto [last, error] = std::from_chars(digits.data(), end, number);
  return error == std::errc() && last == end ? number : -1;
}

}  // namespace

std::vector<Address> addressesOf(const Email2& root, std::string_view field) {
  return addressesIn(root.m_header, field);
}

std::string textOf(std::span<const Address> addresses) {
  std::string list;
  for (const Address& address : addresses) list.append(list.empty() ? "" : ", ").append(address.text());
  return list;
}

std::vector<Header> headersOf(const MimeHeader& fields) {
  std::vector<Header> headers;
  headers.reserve(static_cast<std::size_t>(fields.getNumFields()));
  for (int i = 0; i < fields.getNumFields(); ++i)  // a line that is not a field has no name
    if (!fields.fieldName(i).empty())
      headers.push_back({std::string(fields.fieldName(i)), fields.decodedValue(i)});
  return headers;
}

std::optional<std::string> headerOf(const MimeHeader& fields, std::string_view name) {
  const int field = fields.findField(name);
  return field < 0 ? std::nullopt : std::optional(fields.decodedValue(field));
}

std::string subjectIn(const MimeHeader& fields) {
  return headerOf(fields, "Subject").value_or(std::string());
}

std::optional<Date> sentDateIn(const MimeHeader& fields) {
  std::string scratch;
  const std::optional<std::string_view> text = receivedDateText(fields, scratch);
  if (!text) return std::nullopt;
  const Result<Date> date = Date::parse(*text);
  return date ? std::optional(*date) : std::nullopt;
}

std::string messageIdIn(const MimeHeader& fields) {
  return firstIdIn(headerOf(fields, "Message-ID").value_or(std::string()));
}

std::string inReplyToIn(const MimeHeader& fields) {
  return findFirstId(headerOf(fields, "In-Reply-To").value_or(std::string())).value_or(std::string());
}

std::vector<std::string> referencesIn(const MimeHeader& fields) {
  return idsIn(headerOf(fields, "References").value_or(std::string()));
}

std::string listIdIn(const MimeHeader& fields) {
  // The description before the id may be any text.
  const std::string value = headerOf(fields, "List-ID").value_or(std::string());
  const std::size_t begin = value.rfind('<');
  const std::string id = firstIdIn(begin == std::string::npos ? value : value.substr(begin));
  return id == "<>" ? std::string() : id;
}

Address Message::from() const {
  const std::optional<_svEmailAddress> sender = senderOf(m_state->root());
  return sender ? valueOf(*sender) : Address();
}

Address Message::sender() const {
  const std::vector<Address> all = addressesOf(m_state->root(), "Sender");
  return all.empty() ? Address() : all.front();
}

std::vector<Address> Message::replyTo() const { return addressesOf(m_state->root(), "Reply-To"); }
std::vector<Address> Message::to() const { return addressesOf(m_state->root(), "To"); }
std::vector<Address> Message::cc() const { return addressesOf(m_state->root(), "Cc"); }

std::vector<Address> Message::bcc() const {
  // A message that is being written has Bcc recipients without such a field.
  const Email2& root = m_state->root();
  return root.m_header.findField("Bcc") >= 0 ? addressesOf(root, "Bcc") : valuesOf(root.m_bccAddrs);
}

std::string Message::subject() const { return subjectIn(m_state->root().m_header); }
std::optional<Date> Message::date() const { return sentDateIn(m_state->root().m_header); }
std::string Message::messageId() const { return messageIdIn(m_state->root().m_header); }
std::string Message::inReplyTo() const { return inReplyToIn(m_state->root().m_header); }
std::vector<std::string> Message::references() const { return referencesIn(m_state->root().m_header); }
std::string Message::listId() const { return listIdIn(m_state->root().m_header); }

std::vector<Header> Message::headers() const { return headersOf(m_state->root().m_header); }

// Not through root(): numbering the parts costs more than reading a field.
std::optional<std::string> Message::header(std::string_view name) const {
  return headerOf(m_state->root().m_header, name);
}

Part Message::root() const { return MessageState::partOf(*m_state, 0); }

std::vector<Part> Message::parts() const {
  std::vector<Part> parts;
  const int count = static_cast<int>(m_state->outline().rows.size());
  parts.reserve(m_state->outline().rows.size());
  for (int row = 0; row < count; ++row) parts.push_back(MessageState::partOf(*m_state, row));
  return parts;
}

std::optional<Part> Message::part(std::string_view id) const {
  const Outline& outline = m_state->outline();
  constexpr int kRoot[] = {0};
  std::span<const int> siblings = kRoot;
  for (;;) {
    const std::size_t dot = id.find('.');
    const int number = numberIn(id.substr(0, dot));
    if (number < 1 || number > static_cast<int>(siblings.size())) return std::nullopt;
    const int row = siblings[static_cast<std::size_t>(number - 1)];
    if (dot == std::string_view::npos) return MessageState::partOf(*m_state, row);
    siblings = outline.childrenOf(outline.row(row));
    id.remove_prefix(dot + 1);
  }
}

}  // namespace mailtree
