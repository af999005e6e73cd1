#include "cli/merging/template.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "cli/message/output.h"
#include "mailtree/base/Platform.h"
#include "mailtree/base/Search.h"
#include "mailtree/message/address_rules.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/HeaderValue.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlReplace.h"

namespace mailtree::cli {
namespace {

constexpr unsigned kSecretBytes = 12;
constexpr std::string_view kColumnMark = "%s";
/// How far to search for the end of a placeholder that is broken across lines.
constexpr std::size_t kMaxPlaceholder = 200;
constexpr int kTo = static_cast<int>(RecipientKind::to);

/// Visits a node and everything below it, parents first, until the visitor returns false.
bool visit(Email2& node, const std::function<bool(Email2&)>& visitor) {
  if (!visitor(node)) return false;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (Email2* const part = node.getPart(i); part && !visit(*part, visitor)) return false;
  return true;
}

bool isText(const Email2& node) {
  const std::string_view type = node.m_contentType.m_type;
  return type.empty() ? node.getNumParts() == 0 : beginsWithNoCase(type, "text");
}
bool isHtml(const Email2& node) { return equalsNoCase(node.m_contentType.m_type, "text/html"); }

bool containsText(std::string_view text, std::string_view wanted) {
  return findSubstring(text, wanted) != std::string_view::npos;
}

/// Iterates over the names of the placeholders in text. A placeholder ends on the line where it begins.
/// Positions found ahead are kept, so a line with thousands of placeholders is searched once.
class PlaceholderReader {
 public:
  PlaceholderReader(std::string_view text, const PlaceholderForm& form) : m_text(text), m_form(form) {}

  std::optional<std::string_view> next() {
    while ((m_at = findSubstring(m_text, m_form.prefix, m_at)) != std::string_view::npos) {
      m_at += m_form.prefix.size();
      if (m_lineEnd < m_at) m_lineEnd = std::min(m_text.find_first_of("\r\n", m_at), m_text.size());
      if (m_suffix < m_at) m_suffix = std::min(findSubstring(m_text, m_form.suffix, m_at), m_text.size());
      const std::size_t begin = m_at;
      if (m_suffix == begin || m_suffix + m_form.suffix.size() > m_lineEnd) continue;
      m_at = m_suffix + m_form.suffix.size();
      return m_text.substr(begin, m_suffix - begin);
    }
    return std::nullopt;
  }
  /// Where the search for the next placeholder begins.
  std::size_t position() const noexcept { return m_at; }

 private:
  std::string_view m_text;
  const PlaceholderForm& m_form;
  std::size_t m_at = 0;
  std::size_t m_lineEnd = 0;
  std::size_t m_suffix = 0;
};

std::size_t lineAt(std::string_view text, std::size_t at) {
  return static_cast<std::size_t>(
             std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n')) +
         1;
}

/// Describes the first placeholder whose name is not a column; with its line when `isBody`.
std::optional<std::string> firstUnknownPlaceholder(std::string_view text, const PlaceholderForm& form,
                                                   const CsvTable& table, const std::string& place,
                                                   bool isBody) {
  PlaceholderReader placeholders(text, form);
  while (const auto name = placeholders.next()) {
    if (table.columnOf(*name)) continue;
    const std::string where =
        isBody ? ", line " + std::to_string(lineAt(text, placeholders.position() - 1)) : "";
    return place + where + ": no column for " + form.placeholderOf(*name);
  }
  return std::nullopt;
}

std::string typeOf(const Email2& node) {
  return node.m_contentType.m_type.isEmpty() ? "text/plain" : std::string(node.m_contentType.m_type.view());
}

/// Describes the first placeholder that a mail program broke over two lines. It is not replaced.
std::optional<std::string> firstBrokenPlaceholder(std::string_view text, const PlaceholderForm& form,
                                                  const CsvTable& table, const std::string& place) {
  std::size_t at = 0;
  while ((at = findSubstring(text, form.prefix, at)) != std::string_view::npos) {
    at += form.prefix.size();
    const std::string_view after = text.substr(at, kMaxPlaceholder);
    std::string name(after.substr(0, findSubstring(after, form.suffix)));
    if (name.size() == after.size() || name.find('\n') == std::string::npos) continue;
    std::erase(name, '\r');
    std::ranges::replace(name, '\n', ' ');
    for (std::size_t doubleSpace; (doubleSpace = name.find("  ")) != std::string::npos;)
      name.erase(doubleSpace, 1);
    if (table.columnOf(name))
      return place + ", line " + std::to_string(lineAt(text, at)) + ": " + form.placeholderOf(name) +
             " is split across two lines";
  }
  return std::nullopt;
}

std::optional<std::string> firstUnknownPlaceholderOf(const Email2& node, const PlaceholderForm& form,
                                                     const CsvTable& table) {
  for (int i = 0; i < node.m_header.getNumFields(); ++i)
    if (auto unknown =
            firstUnknownPlaceholder(node.m_header.decodedValue(i), form, table,
                                    "field " + std::string(node.m_header.fieldName(i)), /*isBody=*/false))
      return unknown;
  if (!isText(node)) return std::nullopt;
  const std::string place = typeOf(node) + " part";
  auto unknown = firstUnknownPlaceholder(node.m_body.view(), form, table, place, /*isBody=*/true);
  return unknown ? unknown : firstBrokenPlaceholder(node.m_body.view(), form, table, place);
}

void addPair(ExtPtrArray& pairs, const char* key, const char* value) {
  auto pair = std::make_unique<StringPair>(key, value);
  if (pairs.appendObject(pair.get())) std::ignore = pair.release();  // the list owns it now
}

void replaceEverywhere(Email2& root, const std::string& key, const std::string& value) {
  LogNull log;
  ExtPtrArray pairs;
  addPair(pairs, key.c_str(), value.c_str());
  root.replaceStrings(pairs, log);
}

bool replaceInHtml(Email2& root, const std::string& key, const std::string& value) {
  Replacements replacements(Replacements::Order::atOnce);
  replacements.add(key, value);
  bool isFound = false;
  visit(root, [&](Email2& node) {
    if (!isHtml(node)) return true;
    const auto changed = changeHtmlPieces(
        node.m_body.view(), [&](std::string_view piece) { return replacements.replacedIn(piece); });
    if (!changed) return true;
    isFound = true;
    node.m_body.clear();
    return node.m_body.append(std::string_view(*changed));
  });
  return isFound;
}

/// Takes the pages out of the tree for as long as everything else is changed: what is left in them is in
/// scripts, styles and comments, where no escaping makes a value harmless.
class PagesAside {
 public:
  explicit PagesAside(Email2& root) {
    visit(root, [this](Email2& node) {
      if (isHtml(node)) m_pages.emplace_back(&node, DataBuffer()).second.takeData(node.m_body);
      return true;
    });
  }
  PagesAside(const PagesAside&) = delete;
  PagesAside& operator=(const PagesAside&) = delete;
  ~PagesAside() {
    for (auto& [node, page] : m_pages) node->m_body.takeData(page);
  }

 private:
  std::vector<std::pair<Email2*, DataBuffer>> m_pages;
};

/// Converts the line breaks of a value to CRLF.
std::string withCrlf(std::string value) {
  if (!contains(value, "\n")) return value;
  StringBuffer lines(value);
  lines.toCRLF();
  return lines.extractString();
}

void removeWhenEmpty(Email2& email, const std::string& field) {
  std::string scratch;
  const int at = email.m_header.findField(field);
  if (at >= 0 && trim(email.m_header.unfoldedValue(at, scratch)).empty())
    email.removeHeaderField(field.c_str());
}

bool write(Email2& root, std::string& out) {
  LogNull log;
  StringBuffer text;
  const bool isWhole = assembleMessage(root, text, log);
  out = text.extractString();
  return isWhole;
}

}  // namespace

std::optional<PlaceholderForm> placeholderFormOf(std::string_view pattern) {
  const std::size_t at = pattern.find(kColumnMark);
  if (at == std::string_view::npos || at == 0) return std::nullopt;
  const std::string_view suffix = pattern.substr(at + kColumnMark.size());
  if (suffix.empty() || contains(suffix, kColumnMark)) return std::nullopt;
  return PlaceholderForm{std::string(pattern.substr(0, at)), std::string(suffix)};
}

MergeTemplate::MergeTemplate(Message message, PlaceholderForm form)
    : m_message(std::move(message)), m_form(std::move(form)) {
  DataBuffer random;
  RandomSource::genRandomBytes(kSecretBytes, random);
  StringBuffer secret("term");
  random.toHexString(secret);
  m_secret = secret.extractString();
}

std::optional<std::string> MergeTemplate::unknownPlaceholder(const CsvTable& table) const {
  std::optional<std::string> unknown;
  visit(*m_message.root, [&](Email2& node) {
    unknown = firstUnknownPlaceholderOf(node, m_form, table);
    return !unknown;
  });
  return unknown;
}

bool MergeTemplate::occurIn(const Email2& node, const CsvTable& table) const {
  return std::ranges::any_of(table.columns(), [&](const std::string& column) {
    return containsText(node.m_body.view(), m_form.placeholderOf(column));
  });
}

bool MergeTemplate::hasPlaceholdersInAttachedMessages(const CsvTable& table) const {
  return !visit(*m_message.root, [&](Email2& node) {
    return !beginsWithNoCase(node.m_contentType.m_type, "message/") || !occurIn(node, table);
  });
}

bool MergeTemplate::hasPlaceholdersInPages(const CsvTable& table) const {
  return !visit(*m_message.root, [&](Email2& node) { return !isHtml(node) || !occurIn(node, table); });
}

MergeTemplate::Token MergeTemplate::newToken(std::size_t column, bool inHtml) const {
  return {column, m_secret + "n" + std::to_string(m_tokens.size()) + "e", inHtml};
}

bool MergeTemplate::prepare(const CsvTable& table, bool rawHtml) {
  removeTransportFields();
  std::string written;
  if (!write(*m_message.root, written)) return false;
  for (std::size_t column = 0; column < table.columns().size(); ++column)
    if (!replacePlaceholder(m_form.placeholderOf(table.columns()[column]), column, !rawHtml, written))
      return false;
  findAddressSlots();
  return true;
}

/// A token is kept only when its placeholder occurs: the written message then changes.
bool MergeTemplate::replacePlaceholder(const std::string& placeholder, std::size_t column, bool escapeHtml,
                                       std::string& written) {
  Email2& root = *m_message.root;
  if (escapeHtml) {
    Token token = newToken(column, /*inHtml=*/true);
    if (replaceInHtml(root, placeholder, token.text)) {
      m_tokens.push_back(std::move(token));
      if (!write(root, written)) return false;
    }
  }
  Token token = newToken(column, /*inHtml=*/false);
  std::string after;
  {
    const std::optional<PagesAside> pages = escapeHtml ? std::make_optional<PagesAside>(root) : std::nullopt;
    replaceEverywhere(root, placeholder, token.text);
  }
  if (!write(root, after)) return false;
  if (written != after) m_tokens.push_back(std::move(token));
  written = std::move(after);
  return true;
}

/// Removes trace fields. A duplicated Message-ID or Date loses all copies: each message replaces only the
/// first one by its own, and would keep the others.
void MergeTemplate::removeTransportFields() {
  Email2& root = *m_message.root;
  for (const char* const name : {"Received", "Return-Path"}) root.removeHeaderField(name);
  for (const char* const name : {"Message-ID", "Date"})
    if (root.m_header.findField(name, root.m_header.findField(name) + 1) >= 0) root.removeHeaderField(name);
}

/// The To field keeps its place. Its only address has tokens, replaced by the values of each row.
std::optional<std::string> MergeTemplate::setRecipient(const CsvTable& table, const std::string& field) {
  const bool isColumn = table.columnOf(field).has_value();
  std::string pattern = isColumn ? m_form.placeholderOf(field) : field;
  if (auto unknown = firstUnknownPlaceholder(pattern, m_form, table, "'" + field + "'", /*isBody=*/false))
    return unknown;
  DataBuffer text;
  text.append(std::string_view(pattern));
  for (std::size_t column = 0; column < table.columns().size(); ++column) {
    const Token token = newToken(column, /*inHtml=*/false);
    const std::string placeholder = m_form.placeholderOf(table.columns()[column]);
    if (text.replaceAllOccurances(placeholder, token.text) > 0) m_tokens.push_back(token);
  }
  if (m_tokens.empty()) return "no column '" + field + "'";
  ExtPtrArray list;
  if (_svEmailAddress::parseAndLoadList(text.view(), list) != 1) return "'" + field + "' is not one address";
  LogNull log;
  const auto& recipient = *list.at<_svEmailAddress>(0);
  const std::string name(recipient.m_name.view()), address(recipient.m_address.view());
  m_message.root->m_toAddrs.removeAllObjects();
  m_message.root->addRecipient(kTo, name.empty() ? nullptr : name.c_str(), address.c_str(), log);
  m_slots.push_back({"To", address, /*mustBeSingle=*/true});
  return std::nullopt;
}

void MergeTemplate::findAddressSlots() {
  const MimeHeader& header = m_message.root->m_header;
  const bool hasRecipient = !m_slots.empty();
  for (int i = 0; i < header.getNumFields(); ++i) {
    const std::string_view name = header.fieldName(i);
    if (grammarOf(name) != FieldGrammar::addresses || (hasRecipient && equalsNoCase(name, "To"))) continue;
    findSlotsIn(i);
  }
}

/// A token alone, without a display name or a domain, may be replaced by a list of addresses.
void MergeTemplate::findSlotsIn(int field) {
  const MimeHeader& header = m_message.root->m_header;
  const std::string name(header.fieldName(field));
  std::string scratch;
  ExtPtrArray list;
  if (_svEmailAddress::parseAndLoadList(header.unfoldedValue(field, scratch), list) == 0) {
    const std::string text = header.decodedValue(field);
    if (containsText(text, m_secret)) m_slots.push_back({name, text, /*mustBeSingle=*/false});
  }
  for (int i = 0; i < list.getSize(); ++i) {
    const auto& entry = *list.at<_svEmailAddress>(i);
    const std::string_view address = entry.m_address.view();
    if (!containsText(address, m_secret)) continue;
    const bool isAlone = entry.m_name.isEmpty() && !contains(address, "@");
    m_slots.push_back({name, std::string(address), !isAlone});
  }
}

Replacements MergeTemplate::tokensToValues(const CsvRow& row) const {
  Replacements replacements;
  for (const Token& token : m_tokens)
    if (!token.inHtml) replacements.add(token.text, row[token.column]);
  return replacements;
}

std::size_t MergeTemplate::lineOf(const AddressSlot& slot, const CsvRow& row) const {
  for (const Token& token : m_tokens)
    if (containsText(slot.text, token.text)) return row.lineOf(token.column);
  return row.line();
}

/// Cc and Bcc are optional.
bool MergeTemplate::mayBeEmpty(const AddressSlot& slot) noexcept {
  return !slot.mustBeSingle && (equalsNoCase(slot.field, "Cc") || equalsNoCase(slot.field, "Bcc"));
}

std::optional<RowProblem> MergeTemplate::problemOf(const CsvRow& row) const {
  if (m_slots.empty()) return std::nullopt;
  const Replacements replacements = tokensToValues(row);
  for (const AddressSlot& slot : m_slots) {
    DataBuffer text;
    text.append(std::string_view(slot.text));
    replacements.replaceIn(text);
    if (mayBeEmpty(slot) && trim(text.view()).empty()) continue;
    const auto problem =
        addressProblem(text.view(), slot.mustBeSingle ? AddressCount::one : AddressCount::several);
    if (problem) return RowProblem{lineOf(slot, row), slot.field + ": " + *problem};
  }
  return std::nullopt;
}

EmailPtr MergeTemplate::fill(const CsvRow& row) const {
  ExtPtrArray pairs;
  for (const Token& token : m_tokens) {
    const std::string_view value = row[token.column];
    addPair(pairs, token.text.c_str(),
            withCrlf(token.inHtml ? escapeHtml(value) : std::string(value)).c_str());
  }
  LogNull log;
  EmailPtr email(m_message.root->cloneAndReplace_v3(/*shareImageData=*/true, pairs, log));
  if (!email || !email->generateMessageID(log)) return EmailPtr();
  email->resetDate(log);
  for (const AddressSlot& slot : m_slots)
    if (mayBeEmpty(slot)) removeWhenEmpty(*email, slot.field);
  return email;
}

}  // namespace mailtree::cli
