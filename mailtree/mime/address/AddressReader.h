// mime/address/AddressReader.h - parses an address list (RFC 5322, 3.4 and 4.4),
// tolerantly and in linear time.
//
// Tokens are collected into entries, which end at commas, semicolons and colons. The form of an entry (angle
// brackets, an "@", or neither) tells its name from its address. Only names are decoded, last of all, so text
// inside an encoded word is never taken for structure.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/mime/address/AddressLexer.h"

namespace mailtree {

/// One address as it was read: utf-8, decoded, free of CR, LF and NUL.
struct ReadAddress {
  std::string name;
  std::string address;
};

/// The decoded name that the tokens make: words, quoted strings and the text between them.
std::string nameOfTokens(std::span<const AddressToken> tokens);

/// Returns the addresses of a list one by one.
class AddressReader {
 public:
  /// What to do with an entry that has a name and no address.
  enum class LoneNames { skip, keep };

  explicit AddressReader(std::string_view text, LoneNames loneNames = LoneNames::skip)
      : m_lexer(text), m_keepsLoneNames(loneNames == LoneNames::keep) {}
  std::optional<ReadAddress> next();

 private:
  using Index = std::size_t;
  static constexpr std::size_t kFewTokens = 12;  ///< "A Name <a@b>" and most others have fewer.
  static constexpr Index kNone = static_cast<Index>(-1);

  /// A range of m_tokens.
  struct Range {
    Index begin = 0, end = 0;
    bool isEmpty() const noexcept { return begin >= end; }
  };
  struct Comment {
    Index before;  ///< The token after it.
    std::string_view inside;
  };

  bool isAtEntry() const noexcept;
  void see(AddressToken token);
  void onComma(const AddressToken& comma);
  void onColon(const AddressToken& colon);
  void onOpeningAngle(const AddressToken& angle);
  void onClosingAngle(const AddressToken& angle);
  void openAngle(const AddressToken& angle);
  bool isAngleOpen() const noexcept { return m_angle != kNone && m_angleEnd == kNone; }
  bool isInRoute() const noexcept;

  void finishEntry();
  void finishAngle();
  void finishBare(Range range);
  void finishWords(Range range);
  void finishEarlierParts();
  void finishQuotedParts();
  Range takeDetachedName();
  void clearEntry() noexcept;
  void give(std::string name, Range comments, std::string address);
  void addLoneName(Range range);

  bool isQuotedName(Range range) const;
  bool mayBeLocalPart(Range range) const;
  bool joins(Index token, bool inAngle) const noexcept;
  Range firstRun(Range range, bool inAngle) const noexcept;
  Range addressRun(Range range, bool inAngle) const noexcept;
  Index lastAt(Range range) const noexcept;  ///< The end of the range when there is none.
  bool containsAt(Range range) const noexcept { return lastAt(range) < range.end; }
  std::string addressOf(Range range) const;
  std::string nameOf(Range range) const;
  std::string commentIn(Range range) const;

  AddressLexer m_lexer;
  bool m_keepsLoneNames;
  std::vector<ReadAddress> m_ready;
  std::size_t m_returned = 0;  // Entries of m_ready already returned.

  // The entry being read. Commas split it into parts while it may turn out to be "Last, First <a@b>".
  std::vector<AddressToken> m_tokens;
  std::vector<Comment> m_comments;
  std::vector<Range> m_earlierParts;
  Index m_part = 0;            // Where the last part begins.
  Index m_angle = kNone;       // The "<" of the address,
  Index m_angleEnd = kNone;    // and its ">".
  bool m_hasAt = false;        // An "@" was seen, within the angle brackets if there are any.
  bool m_blankBefore = false;  // The next token counts as following a blank.
};

}  // namespace mailtree
