// cli/support/json_text.h - JSON, written at once as text: making values first would take longer than all the
// rest.
//
// Texts become utf-8 without line breaks. What a terminal may obey is escaped in them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mailtree::cli {

/// Version of the schema of all JSON output.
inline constexpr int kSchema = 1;

/// A JSON string, in quotes. Malformed utf-8 becomes U+FFFD.
std::string quotedText(std::string_view text);
void appendQuoted(std::string& out, std::string_view text);
/// What is between the quotes.
void appendEscaped(std::string& out, std::string_view text);

/// An object, member by member. Keys are written as they are.
class ObjectText {
 public:
  /// @param size  bytes that are expected.
  explicit ObjectText(std::size_t size = 200) { m_text.reserve(size); }

  ObjectText& add(std::string_view key, std::string_view text);
  ObjectText& add(std::string_view key, std::int64_t number);
  ObjectText& addOrNull(std::string_view key, std::string_view text);  ///< Null when empty.
  ObjectText& addIs(std::string_view key, bool is);
  /// A member that is already serialized.
  ObjectText& addSerialized(std::string_view key, std::string_view json);
  /// Begins a member whose value is appended to what is returned.
  std::string& begin(std::string_view key);
  /// The members of an object that is already serialized.
  ObjectText& addMembers(std::string_view object);
  /// The object so far, without its closing brace.
  const std::string& open() const noexcept { return m_text; }
  std::string closed() { return std::move(m_text += '}'); }

 private:
  void addKey(std::string_view key);

  std::string m_text = "{";
};

/// A list, value by value.
class ListText {
 public:
  ListText& add(std::string_view text);
  ListText& addSerialized(std::string_view json);
  bool isEmpty() const noexcept { return m_text.size() == 1; }
  std::string closed() { return std::move(m_text += ']'); }

 private:
  void addComma();

  std::string m_text = "[";
};

}  // namespace mailtree::cli
