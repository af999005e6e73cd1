// cli/support/json_values.h - what all JSON output is made of.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "mailtree/mime/Limits.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree::cli {

/// Keeps the order of its keys.
using Json = nlohmann::ordered_json;

/// Version of the form of all output.
inline constexpr int kSchema = 1;

/// A member of an object that is being made; its value is moved from.
struct Member {
  const char* key;
  mutable Json value;
};
/// An object of members with different keys. What an initializer list of Json makes of them, without an array for each.
Json objectOf(std::initializer_list<Member> members);

Json textOrNull(std::string_view text);
Json addressOf(const _svEmailAddress& address);
Json addressOrNull(const std::optional<_svEmailAddress>& address);
/// "2026-04-22T11:30:02Z"
Json dateOrNull(const std::optional<SorvikSysTime>& date);
Json limitsOf(LimitSet limits);

/// The text of a value; utf-8, as it is to be joined with other text.
std::string textOf(const Json& json);
/// One line, without a line break; utf-8, with control characters escaped.
std::string lineOf(std::string text);
std::string lineOf(const Json& json);

}  // namespace mailtree::cli
