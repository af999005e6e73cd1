// mime/address/AddressLexer.h - tokens of address lists (RFC 5322, 3.2 and 6532), read
// tolerantly in linear time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "mailtree/mime/address/PlainMailbox.h"

namespace mailtree {

/// A piece of an address list: a view into its text.
struct AddressToken {
  enum class Kind {
    word,     ///< A run of ordinary characters, dots included; an encoded word; a domain literal.
    quoted,   ///< The content of a quoted string, with its backslashes.
    comment,  ///< The content of a comment, with its backslashes.
    special,  ///< One of < > , ; : @
    end
  };
  Kind kind = Kind::end;
  std::string_view text;
  bool afterBlank = false;  ///< White space or a comment precedes it.

  bool is(char c) const noexcept { return kind == Kind::special && text.front() == c; }
};

/// Splits a text into tokens. The quote of an unterminated string is dropped; the parenthesis of an
/// unterminated comment is an ordinary character.
class AddressLexer {
 public:
  explicit AddressLexer(std::string_view text) noexcept : m_text(text) {}
  AddressToken next() noexcept;
  /// Takes a whole entry where the next one is plain. Only at the beginning of an entry.
  std::optional<PlainMailbox> nextMailbox() noexcept;

 private:
  AddressToken take(AddressToken::Kind kind, std::size_t size) noexcept;
  AddressToken takeDelimited(AddressToken::Kind kind, std::size_t close) noexcept;
  std::size_t closingQuote() noexcept;
  std::size_t closingParenthesis() noexcept;
  std::size_t wordEnd() const noexcept;

  std::string_view m_text;
  std::size_t m_position = 0;
  bool m_afterBlank = false;
  bool m_afterAt = false;
  // Once a search to the end of the text failed it is not repeated: this keeps the time linear.
  bool m_noMoreQuotes = false;
  bool m_noMoreComments = false;
  bool m_noMoreNesting = false;
};

/// Whether the text is a valid local part without quotes: atext (RFC 5322, 3.2.3), utf-8, and dots anywhere,
/// because mailboxes such as "a..b" exist.
bool isBareLocalPart(std::string_view text) noexcept;

/// atext of RFC 5322 (3.2.3), and every byte of utf-8.
bool isAtomCharacter(char c) noexcept;

/// Whether the text is in double quotes, with none inside: a name that was quoted already.
bool isInQuotes(std::string_view text) noexcept;

/// Appends the content of a quoted string or comment without the backslashes of its quoted pairs
/// and without CR, LF, NUL.
void appendUnescaped(std::string_view inside, std::string& out);

/// Appends text as a quoted string, without CR, LF and NUL.
void appendQuotedString(std::string_view text, std::string& out);

}  // namespace mailtree
