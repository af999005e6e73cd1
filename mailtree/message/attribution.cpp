#include "mailtree/message/attribution.h"

#include "mailtree/message/quoting.h"

namespace mailtree {
namespace {

/// "On Sun, 22 Nov 2026 at 12:00, "; empty for a message without a usable date.
std::string timeOf(const Message& message) {
  const std::optional<Date> date = message.date();
  if (!date) return {};
  const std::string text = date->text();
  const std::size_t clock = text.find(':');
  if (clock == std::string::npos || clock < 3) return {};
  return "On " + text.substr(0, clock - 3) + " at " + text.substr(clock - 2, 5) + ", ";
}

}  // namespace

std::string attributionOf(const Message& message) {
  const Address from = message.from();
  std::string author = oneLine(from.name);
  if (author.empty()) author = oneLine(from.address);
  return timeOf(message) + (author.empty() ? "somebody" : author) + " wrote:";
}

}  // namespace mailtree
