// message/contents.cpp - what a message carries besides its text: other messages, a report, a calendar.
#include <algorithm>

#include "mailtree/message/calendar.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/report.h"

namespace mailtree {
namespace {

Result<Message> openInner(MessageState& state, const PartRow& row) {
  Result<Message> message = loadMessage(row.node->m_body, nullptr, &state.opened.common->m_budget);
  if (message) MessageState::of(*message).wasEncrypted = state.holdsSecret();
  return message;
}

}  // namespace

std::vector<Message> Message::messages() const {
  std::vector<Message> messages;
  for (const PartRow& row : m_state->outline().rows) {
    if (!row.isMessage()) continue;
    if (Result<Message> message = openInner(*m_state, row)) messages.push_back(std::move(*message));
  }
  return messages;
}

Result<Message> Part::message() const {
  if (!isMessage()) return Error{ErrorCode::badValue, "not a message: '" + type() + "'", id()};
  return openInner(*m_state, MessageState::rowOf(*this));
}

std::optional<Report> Message::report() const { return reportIn(m_state->outline(), m_state->displayed()); }

std::optional<Calendar> Message::calendar() const { return calendarIn(m_state->outline()); }

}  // namespace mailtree
