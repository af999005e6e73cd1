// cli/merging/template.h - a message with placeholders, and the messages made from it.
//
// Placeholders are replaced in two steps. When the template is prepared, each placeholder becomes an
// unguessable token; then, for each row, tokens become values. A value that looks like a placeholder is
// therefore not replaced, and the context of each placeholder (HTML, an address) is determined only once.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/message/input.h"
#include "cli/support/csv.h"
#include "mailtree/mime/header/Replacements.h"

namespace mailtree::cli {

/// The delimiters of a column name in a placeholder, such as "{{" and "}}".
struct PlaceholderForm {
  std::string prefix, suffix;

  std::string placeholderOf(std::string_view column) const { return prefix + std::string(column) + suffix; }
};

/// Parses a pattern such as "{{%s}}"; nothing unless it has exactly one "%s" with text on both sides.
std::optional<PlaceholderForm> placeholderFormOf(std::string_view pattern);

struct RowProblem {
  std::size_t line;
  std::string what;
};

class MergeTemplate {
 public:
  MergeTemplate(Message message, PlaceholderForm form);

  /// Describes the first placeholder without a column and its place; nothing when there is none.
  std::optional<std::string> unknownPlaceholder(const CsvTable& table) const;
  /// Whether an attached message, which is not changed, contains placeholders.
  bool hasPlaceholdersInAttachedMessages(const CsvTable& table) const;
  /// Whether HTML contains placeholders; after prepare(), those in scripts, styles and comments, which stay.
  bool hasPlaceholdersInPages(const CsvTable& table) const;
  /// Sets the recipient of each message: a column, or a pattern with placeholders such as
  /// "{{name}} <{{email}}>". Returns what is wrong with it, or nothing. Call it before prepare().
  std::optional<std::string> setRecipient(const CsvTable& table, const std::string& field);
  /// Replaces placeholders with tokens: in HTML only those in text and in attributes, because values are
  /// escaped there. `rawHtml`: everywhere in it, without escaping. False when memory ran out.
  bool prepare(const CsvTable& table, bool rawHtml);

  /// Checks the addresses that a row supplies.
  std::optional<RowProblem> problemOf(const CsvRow& row) const;
  /// Returns the message for a row, with a new Message-ID and Date. It borrows from this template, which must
  /// outlive it. Null when memory ran out.
  EmailPtr fill(const CsvRow& row) const;

 private:
  struct Token {
    std::size_t column;
    std::string text;
    bool inHtml = false;  ///< Values are escaped.
  };
  /// An address that contains tokens.
  struct AddressSlot {
    std::string field;
    std::string text;
    bool mustBeSingle;  ///< Must become one address, not a list.
  };

  bool occurIn(const Email2& node, const CsvTable& table) const;
  Token newToken(std::size_t column, bool inHtml) const;
  bool replacePlaceholder(const std::string& placeholder, std::size_t column, bool escapeHtml,
                          std::string& written);
  void removeTransportFields();
  void findAddressSlots();
  void findSlotsIn(int field);
  static bool mayBeEmpty(const AddressSlot& slot) noexcept;
  Replacements tokensToValues(const CsvRow& row) const;
  std::size_t lineOf(const AddressSlot& slot, const CsvRow& row) const;

  Message m_message;
  PlaceholderForm m_form;
  std::string m_secret;  ///< Prefix of every token.
  std::vector<Token> m_tokens;
  std::vector<AddressSlot> m_slots;
};

}  // namespace mailtree::cli
