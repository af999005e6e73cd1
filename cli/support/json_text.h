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
void appendQuotedOrNull(std::string& out, std::string_view text);  ///< Null when empty.
/// What is between the quotes.
void appendEscaped(std::string& out, std::string_view text);

/// An object, member by member. Keys are written as they are.
class ObjectText {
 public:
  /// @param size  bytes that are expected.
  explicit ObjectText(std::size_t size = 200) : m_text(m_own) {
    m_own.reserve(size);
    m_text += '{';
  }
  /// Written at the end of another text, which has to be closed before anything follows.
  explicit ObjectText(std::string& text) : m_text(text) { m_text += '{'; }
  ObjectText(const ObjectText&) = delete;
  ObjectText& operator=(const ObjectText&) = delete;

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
  void close() { m_text += '}'; }
  /// The object, when it is a text of its own.
  std::string closed() { return std::move(m_own += '}'); }
  /// The same so far, without its closing brace.
  const std::string& open() const noexcept { return m_own; }

 private:
  std::string m_own;
  std::string& m_text;
};

/// A list, value by value.
class ListText {
 public:
  ListText() : m_text(m_own) { m_text += '['; }
  /// Written at the end of another text, which has to be closed before anything follows.
  explicit ListText(std::string& text) : m_text(text) { m_text += '['; }
  ListText(const ListText&) = delete;
  ListText& operator=(const ListText&) = delete;

  ListText& add(std::string_view text);
  ListText& addSerialized(std::string_view json);
  /// Begins a value that is appended to what is returned.
  std::string& begin();
  bool isEmpty() const noexcept { return m_text.back() == '['; }
  void close() { m_text += ']'; }
  /// The list, when it is a text of its own.
  std::string closed() { return std::move(m_own += ']'); }

 private:
  std::string m_own;
  std::string& m_text;
};

}  // namespace mailtree::cli
