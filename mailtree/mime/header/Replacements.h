// mime/header/Replacements.h - ordered literal replacements, and how to apply them
// to a header value without breaking it.
//
//   Order      A later pair also replaces text that an earlier value inserted.
//   Matching   Case-sensitive. An empty key matches nothing.
//   Lifetime   Keys and values belong to the pairs, which must outlive the list.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

class DataBuffer;
class ExtPtrArray;
class StringBuffer;

class Replacements {
 public:
  /// How several keys work together.
  enum class Order {
    oneByOne,  ///< Key by key: a later key also replaces in the values of earlier ones.
    atOnce     ///< In one pass, where the longest key is taken; only in free text and addresses of a header.
  };

  Replacements() = default;
  explicit Replacements(Order order) : m_order(order) {}
  /// From a list of StringPair.
  explicit Replacements(const ExtPtrArray& pairs);
  void add(std::string_view key, std::string_view value);

  bool isAtOnce() const noexcept { return m_order == Order::atOnce; }
  /// How often a key was replaced at once so far.
  int count() const noexcept { return m_count; }

  bool isEmpty() const noexcept { return m_pairs.empty(); }
  /// Whether any key occurs in the text; when none does, nothing is replaced.
  bool occurIn(std::string_view text) const noexcept;
  /// Whether a key may occur in a header value as it reads; false is certain, and costs no parsing.
  bool mayOccurIn(std::string_view unfoldedValue) const noexcept;
  /// Returns whether something was replaced; otherwise the text is unchanged.
  bool replaceIn(DataBuffer& text) const;
  /// The text after the replacement; nothing when no key occurs in it.
  std::optional<std::string> replacedIn(std::string_view text) const;
  /// The same for text that must stay on one line: line breaks of a value are not inserted.
  bool replaceInLine(StringBuffer& text) const;

 private:
  struct Pair {
    std::string_view key;
    std::string_view value;
    std::string_view anchor;  ///< The longest run of letters and digits in the key.
    std::string onOneLine;    ///< The value, when it holds line breaks.

    std::string_view line() const noexcept { return onOneLine.empty() ? value : std::string_view(onOneLine); }
  };
  const Pair* longestAt(std::string_view text) const noexcept;
  /// Replaces all keys in one pass; false, with `out` unusable, when there are none.
  bool replaceAtOnce(std::string_view text, bool onOneLine, std::string& out) const;

  std::vector<Pair> m_pairs;
  Order m_order = Order::oneByOne;
  mutable int m_count = 0;
};

/// Replaces in an unfolded header value as it reads decoded, and returns a final value; nothing when no key
/// occurs. Text stays text: no value can end an address, a file name or a parameter and begin another.
/// Deliberate: the boundary of a Content-Type is not text and stays.
std::optional<std::string> replacedHeaderValue(std::string_view fieldName, std::string_view unfolded,
                                               const Replacements& replacements);

/// Replaces in the names and addresses of a list of _svEmailAddress. An entry that was a
/// bare word becomes all the addresses in its replacement; one left without name and address
/// is removed. True when an entry changed.
bool replaceInAddresses(ExtPtrArray& list, const Replacements& replacements);

}  // namespace mailtree
