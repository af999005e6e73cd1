#include "cli/support/json_values.h"

#include <utility>

#include "cli/support/json_text.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {
Json objectOf(std::initializer_list<Member> members) {
  Json::object_t object;
  object.reserve(members.size());
  for (const Member& member : members) object.emplace_back(member.key, std::move(member.value));
  return object;
}

Json textOrNull(std::string_view text) { return text.empty() ? Json() : Json(text); }

Json addressOf(const _svEmailAddress& address) {
  return objectOf({{"name", address.m_name.view()}, {"address", address.m_address.view()}});
}

Json addressOrNull(const std::optional<_svEmailAddress>& address) {
  return address ? addressOf(*address) : Json();
}

Json dateOrNull(const std::optional<SorvikSysTime>& date) { return date ? Json(timeText(*date)) : Json(); }

Json limitsOf(LimitSet limits) {
  Json out = Json::array();
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit)) out.push_back(row.text());
  return out;
}

std::string textOf(const Json& json) {
  return withoutControls(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace mailtree::cli
