#include "cli/support/json_values.h"

#include "cli/support/json_text.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {

std::string quotedOrNull(const std::optional<std::string>& text) { return text ? quotedText(*text) : "null"; }

std::string textsOf(const std::vector<std::string>& texts) {
  ListText list;
  for (const std::string& text : texts) list.add(text);
  return list.closed();
}

std::string addressOf(const Address& address) {
  return ObjectText().add("name", address.name).add("address", address.address).closed();
}

std::string addressOrNull(const std::optional<_svEmailAddress>& address) {
  return address ? addressOf(valueOf(*address)) : "null";
}

std::string dateOrNull(const std::optional<SorvikSysTime>& date) {
  return date ? quotedText(timeText(*date)) : "null";
}

std::string limitsOf(LimitSet limits) {
  ListText list;
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit)) list.add(row.text());
  return list.closed();
}

}  // namespace mailtree::cli
