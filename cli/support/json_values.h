// cli/support/json_values.h - JSON values, for what is written once for each call.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "mailtree/mime/Limits.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree::cli {

/// Keys keep the order in which they are added.
using Json = nlohmann::ordered_json;

/// A member of an object under construction; its value is moved from.
struct Member {
  const char* key;
  mutable Json value;
};
/// An object of members with distinct keys, built without the temporary arrays of a Json initializer list.
Json objectOf(std::initializer_list<Member> members);

Json textOrNull(std::string_view text);
Json addressOf(const _svEmailAddress& address);
Json addressOrNull(const std::optional<_svEmailAddress>& address);
/// "2026-04-22T11:30:02Z"
Json dateOrNull(const std::optional<SorvikSysTime>& date);
Json limitsOf(LimitSet limits);

/// Serialises a value on one line, harmless on a terminal.
std::string textOf(const Json& json);

}  // namespace mailtree::cli
