// message/words.cpp - words replaced in the header fields and texts of a message, as in a form letter.
#include <algorithm>

#include "mailtree/message/content.h"
#include "mailtree/message/fields.h"
#include "mailtree/mime/header/Replacements.h"
#include "mailtree/mime/html/HtmlEscape.h"

namespace mailtree {
namespace {

using Words = std::vector<std::pair<std::string, std::string>>;

Replacements replacementsOf(std::span<const std::pair<std::string, std::string>> words) {
  Replacements replacements(Replacements::Order::atOnce);
  for (const auto& [word, value] : words) replacements.add(word, value);
  return replacements;
}

Words withCrlfValues(std::span<const std::pair<std::string, std::string>> words) {
  Words lines;
  for (const auto& [word, value] : words) lines.emplace_back(word, withCrlf(value));
  return lines;
}

/// In HTML a word is text, and its value too: markup in it is shown, not obeyed.
Words escaped(const Words& words) {
  Words html;
  for (const auto& [word, value] : words) html.emplace_back(escapeHtml(word), escapeHtml(value));
  return html;
}

/// The texts that are not files.
std::vector<int> textRows(MessageState& state) {
  std::vector<int> rows;
  std::vector<bool> isFile(state.outline().rows.size());
  for (const int row : state.displayed().attachments) isFile[static_cast<std::size_t>(row)] = true;
  for (std::size_t row = 0; row < isFile.size(); ++row)
    if (!isFile[row] && isReadAsText(state.outline().rows[row])) rows.push_back(static_cast<int>(row));
  return rows;
}

/// The recipients and the sender of the tree, which must say the same as their fields.
void rereadAddresses(Email2& email, const Replacements& replacements) {
  for (const char* const name : {"To", "Cc", "Bcc"}) {
    ExtPtrArray& list = email.*recipientFieldOf(name)->list;
    if (email.m_header.findField(name) < 0) {
      replaceInAddresses(list, replacements);
      continue;
    }
    list.removeAllObjects();
    entriesOf(email.m_header, name, list);
  }
  if (const auto sender = senderIn(email.m_header)) email.m_fromAddr.copyEmailAddress(*sender);
}

class WordReplacer {
 public:
  WordReplacer(MessageState& state, const Words& words)
      : m_state(state),
        m_html(escaped(words)),
        m_inText(replacementsOf(words)),
        m_inHtml(replacementsOf(m_html)),
        m_inHeader(replacementsOf(words)),
        m_inLists(replacementsOf(words)) {}

  bool occurInTexts() const {
    return std::ranges::any_of(textRows(m_state), [this](int id) {
      const PartRow& row = m_state.outline().row(id);
      return replacementsFor(row).occurIn(textOf(row));
    });
  }

  bool replaceInTexts() {
    for (const int id : textRows(m_state)) {
      const PartRow& row = m_state.outline().row(id);
      DataBuffer text;
      if (!text.append(std::string_view(textOf(row)))) return false;
      if (replacementsFor(row).replaceIn(text) && !rewriteText(m_state.root(), *row.node, text)) return false;
    }
    return true;
  }

  Result<void> replaceInHeader() {
    return m_state.changeHeader([this](Email2& email) {
      const int before = m_inHeader.count();
      email.m_header.replacePatterns(m_inHeader);
      rereadAddresses(email, m_inLists);
      m_headerCount = m_inHeader.count() - before;
    });
  }

  /// Each occurrence once, although a closed form of the message has the same header.
  int count() const { return m_headerCount + m_inText.count() + m_inHtml.count(); }

 private:
  const Replacements& replacementsFor(const PartRow& row) const { return isHtml(row) ? m_inHtml : m_inText; }

  MessageState& m_state;
  const Words m_html;
  const Replacements m_inText, m_inHtml, m_inHeader, m_inLists;
  int m_headerCount = 0;
};

}  // namespace

Result<int> Message::replaceWords(std::span<const std::pair<std::string, std::string>> words) {
  for (const auto& [word, value] : words) {
    if (word.empty()) return Error{ErrorCode::badValue, "the word to replace is empty", {}};
    if (Result<void> checked = checkText(value, word); !checked) return std::move(checked).error();
  }
  const Words lines = withCrlfValues(words);
  WordReplacer replacer(*m_state, lines);
  if (replacer.occurInTexts()) {
    if (Result<void> begun = beginContent(*m_state); !begun) return std::move(begun).error();
    dropSignaturesOver(*m_state, textRows(*m_state));
    const bool isDone = replacer.replaceInTexts();
    endContent(*m_state);
    if (!isDone) return noMemory();
  }
  if (Result<void> done = replacer.replaceInHeader(); !done) return std::move(done).error();
  return replacer.count();
}

}  // namespace mailtree
