// mime/address/AddressReader.h - takes an address list apart (RFC 5322, 3.4 and 4.4), tolerantly and in linear time.
//
// Tokens are gathered into entries, which end at commas, semicolons and colons; what an entry holds (angle
// brackets, an "@", or neither) says what in it is name and what is address. Only names are decoded, and last
// of all, so that nothing inside an encoded word is ever taken for structure.
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

/// The name that words, quoted strings and what stands between them are read as, decoded.
std::string nameOfTokens(std::span<const AddressToken> tokens);

/// Gives the addresses of a list one by one.
class AddressReader {
 public:
  /// What becomes of an entry that holds a name and no address.
  enum class LoneNames { passOver, give };

  explicit AddressReader(std::string_view text, LoneNames loneNames = LoneNames::passOver)
      : m_lexer(text), m_givesLoneNames(loneNames == LoneNames::give) {
    m_tokens.reserve(kFewTokens);
  }
  std::optional<ReadAddress> next();

 private:
  using Index = std::size_t;
  static constexpr std::size_t kFewTokens = 12;  ///< More than "A Name <a@b>" has.
  static constexpr Index kNone = static_cast<Index>(-1);

  /// Some of m_tokens.
  struct Range {
    Index begin = 0, end = 0;
    bool isEmpty() const noexcept { return begin >= end; }
  };
  struct Comment {
    Index before;  ///< The token it stands in front of.
    std::string_view inside;
  };

  void see(AddressToken token);
  void seeComma(const AddressToken& comma);
  void seeColon(const AddressToken& colon);
  void seeAngle(const AddressToken& angle);
  void seeClosingAngle(const AddressToken& angle);
  void openAngle(const AddressToken& angle);
  bool isAngleOpen() const noexcept { return m_angle != kNone && m_angleEnd == kNone; }
  bool isInRoute() const noexcept;

  void finishEntry();
  void finishAngle();
  void finishBare(Range range);
  void finishWords(Range range);
  void finishEarlierParts();
  void finishQuotedParts();
  Range takeDanglingName();
  void clearEntry() noexcept;
  void give(std::string name, Range comments, std::string address);
  void giveLoneName(Range range);

  bool isQuotedName(Range range) const;
  bool mayBeLocalPart(Range range) const;
  bool joins(Index token, bool inAngle) const noexcept;
  Range firstRun(Range range, bool inAngle) const noexcept;
  Range addressRun(Range range, bool inAngle) const noexcept;
  Index lastAt(Range range) const noexcept;  ///< The end of the range without one.
  bool holdsAt(Range range) const noexcept { return lastAt(range) < range.end; }
  std::string addressOf(Range range) const;
  std::string nameOf(Range range) const;
  std::string commentIn(Range range) const;

  AddressLexer m_lexer;
  bool m_givesLoneNames;
  std::vector<ReadAddress> m_ready;
  std::size_t m_given = 0;  // Of m_ready.

  // The entry being read. Commas cut it into parts for as long as it may turn out to be "Last, First <a@b>".
  std::vector<AddressToken> m_tokens;
  std::vector<Comment> m_comments;
  std::vector<Range> m_earlierParts;
  Index m_part = 0;            // Where the last part begins.
  Index m_angle = kNone;       // The "<" that counts,
  Index m_angleEnd = kNone;    // and its ">".
  bool m_hasAt = false;        // An "@" was seen, within the angle brackets if there are any.
  bool m_blankBefore = false;  // The next token is to be taken for one after a blank.
};

}  // namespace mailtree
