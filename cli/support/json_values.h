// cli/support/json_values.h - building blocks of all JSON output.
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

/// Version of the schema of all JSON output.
inline constexpr int kSchema = 1;

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

/// An object written member by member, for lists so long that a Json value for each entry would take longer
/// than all the rest. Keys are written as they are.
class ObjectText {
 public:
  ObjectText& add(std::string_view key, std::string_view text);
  ObjectText& add(std::string_view key, std::uint64_t number);
  ObjectText& addOrNull(std::string_view key, std::string_view text);  ///< Null when empty.
  /// A member that is already serialized.
  ObjectText& addSerialized(std::string_view key, std::string_view json);
  /// The members of an object that is already serialized.
  ObjectText& addMembers(std::string_view object);
  /// The object so far, without its closing brace.
  const std::string& open() const noexcept { return m_text; }
  std::string closed() { return std::move(m_text += '}'); }

 private:
  void addKey(std::string_view key);

  std::string m_text = "{";
};

/// Serialises a value compactly as utf-8.
std::string textOf(const Json& json);
/// Serialised JSON on one line, without a line break: utf-8, with control characters escaped.
std::string lineOf(std::string text);
std::string lineOf(const Json& json);

}  // namespace mailtree::cli
