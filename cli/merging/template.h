// cli/merging/template.h - a message with terms in it, and the messages made of it.
//
// Terms are replaced in two steps. Once, when the template is prepared, every term becomes a token that nobody
// can guess; then, for each row, tokens become values. So a value that looks like a term stays what it is, and
// what is known about the place where a term stands (HTML, an address) is found out once.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/message/input.h"
#include "cli/support/csv.h"
#include "mailtree/mime/header/Replacements.h"

namespace mailtree::cli {

/// What surrounds the name of a column in a term, such as "{{" and "}}".
struct TermForm {
  std::string prefix, suffix;

  std::string termOf(std::string_view column) const { return prefix + std::string(column) + suffix; }
};

/// Takes "{{%s}}" apart; nothing when text is missing on a side of the one "%s".
std::optional<TermForm> termFormOf(std::string_view pattern);

struct RowProblem {
  std::size_t line;
  std::string what;
};

class MergeTemplate {
 public:
  MergeTemplate(Message message, TermForm form);

  /// The first term without a column, with where it stands; nothing when there is none.
  std::optional<std::string> termWithoutColumn(const CsvTable& table) const;
  /// Whether terms stand in an attached message, which is passed on as it is.
  bool hasTermsOutOfReach(const CsvTable& table) const;
  /// Turns terms into tokens. `toColumn`: whose values are the recipients, one a message. `rawHtml`: values are
  /// put into HTML as they are, not escaped. False when memory ran out.
  bool prepare(const CsvTable& table, std::optional<std::size_t> toColumn, bool rawHtml);

  /// What is wrong with the addresses that a row gives.
  std::optional<RowProblem> problemOf(const CsvRow& row) const;
  /// A message for a row, with a Message-ID and a date of its own. It borrows from this template, which must
  /// outlive it. Null when memory ran out.
  EmailPtr fill(const CsvRow& row) const;

 private:
  struct Token {
    std::size_t column;
    std::string text;
    bool inHtml = false;  ///< Its values are escaped.
  };
  /// An address with tokens in it.
  struct AddressSlot {
    std::string field;
    std::string text;
    bool isOne;  ///< Else a list may take its place.
  };

  Token newToken(std::size_t column, bool inHtml) const;
  bool takeTerms(const std::string& term, std::size_t column, bool escapeHtml, std::string& written);
  void removeTraces();
  void setRecipient(std::size_t column);
  void findAddressSlots();
  void findSlotsIn(int field);
  static bool mayBeEmpty(const AddressSlot& slot) noexcept;
  Replacements tokensToValues(const CsvRow& row) const;
  std::size_t lineOf(const AddressSlot& slot, const CsvRow& row) const;

  Message m_message;
  TermForm m_form;
  std::string m_secret;  ///< Every token begins with it.
  std::vector<Token> m_tokens;
  std::vector<AddressSlot> m_slots;
};

}  // namespace mailtree::cli
