// message/contents.cpp - what a message carries besides its text: other messages, a report, a calendar.
#include <algorithm>

#include "mailtree/message/calendar.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/report.h"

namespace mailtree {

std::vector<Message> Message::messages() const {
  std::vector<Message> messages;
  for (const PartRow& row : m_state->outline().rows) {
    if (!row.isMessage()) continue;
    Result<Message> message = loadMessage(row.node->m_body, nullptr, &m_state->opened.common->m_budget);
    if (message) messages.push_back(*std::move(message));
  }
  return messages;
}

Result<Message> Part::message() const {
  if (!isMessage()) return Error{ErrorCode::badValue, "not a message: '" + type() + "'", id()};
  return loadMessage(email2().m_body, nullptr, &m_state->opened.common->m_budget);
}

std::optional<Report> Message::report() const { return reportIn(m_state->outline(), m_state->displayed()); }

std::optional<Calendar> Message::calendar() const { return calendarIn(m_state->outline()); }

}  // namespace mailtree
