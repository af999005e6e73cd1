#include "mailtree/message/inner_messages.h"

#include <algorithm>
#include <utility>

#include "mailtree/email/loading/received_date.h"
#include "mailtree/message/outline.h"

namespace mailtree {
namespace {

/// Whether a message with this header is multipart or is itself a message.
bool mayHoldMessages(const MimeHeader& header) {
  std::string scratch;
  _svCharset charset;
  _svContentType type;
  type.loadFromMimeHeaderValue(header.unfoldedValue(header.findField("Content-Type"), scratch), charset);
  return beginsWithNoCase(type.m_type, "multipart/") || isMessageType(type.m_type);
}

std::string pathBelow(const std::string& outer, std::size_t number) {
  return outer.empty() ? std::to_string(number) : outer + "/" + std::to_string(number);
}

}  // namespace

std::optional<_svEmailAddress> InnerMessage::sender() const { return senderIn(header); }

std::string InnerMessage::subject() const { return header.decodedValue(header.findField("Subject")); }

std::optional<SorvikSysTime> InnerMessage::date() const {
  SorvikSysTime date;
  if (!receivedDate(header, date)) return std::nullopt;
  return date;
}

InnerMessages::InnerMessages(Email2& outer, std::string wanted)
    : m_wanted(std::move(wanted)), m_budget(outer.m_common->m_budget) {
  add(outer, nullptr);
}

InnerMessage* InnerMessages::next() {
  if (m_current && mustOpen(*m_current)) openMessage(*m_current);
  m_current.reset();
  if (m_pending.empty()) return nullptr;
  m_current = std::move(m_pending.back());
  m_pending.pop_back();
  m_current->header.loadFromEntity(m_current->bytes.view());
  return &*m_current;
}

bool InnerMessages::mustOpen(const InnerMessage& message) const {
  return (m_wanted.empty() || m_wanted.starts_with(message.number + "/")) && mayHoldMessages(message.header);
}

void InnerMessages::openMessage(InnerMessage& message) {
  if (message.depth >= kMaxDepth) {
    m_limits.add(Limit::depth);
    return;
  }
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  common->m_budget = m_budget;
  common->m_sharesBudget = true;
  SystemCerts certs;
  LogNull log;
  const EmailPtr tree(Email2::createFromMimeDb(*common, message.bytes, /*discardInput=*/true, /*unwrap=*/true,
                                               certs, log, /*parseOption=*/false));
  if (tree) add(*tree, &message);
  m_limits.add(common->m_limits);
  m_budget = common->m_budget;
}

void InnerMessages::add(Email2& tree, const InnerMessage* outer) {
  const auto begin = static_cast<std::ptrdiff_t>(m_pending.size());
  const Outline outline = outlineOf(tree);
  std::size_t number = 0;
  for (std::size_t id = 0; id < outline.rows.size(); ++id) {
    const PartRow& row = outline.rows[id];
    if (!row.isMessage()) continue;
    InnerMessage message{pathBelow(outer ? outer->number : "", number++),
                         pathBelow(outer ? outer->part : "", id),
                         outer ? outer->depth + 1 : 0,
                         row.filename,
                         {},
                         {}};
    message.bytes.takeData(row.node->m_body);
    m_pending.push_back(std::move(message));
  }
  std::reverse(m_pending.begin() + begin, m_pending.end());
}

}  // namespace mailtree
