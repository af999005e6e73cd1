// message/words.cpp - words replaced in the header fields and texts of a message, as in a form letter.
#include <algorithm>

#include "mailtree/message/content.h"
#include "mailtree/message/fields.h"
#include "mailtree/mime/header/Replacements.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlReplace.h"

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

  /// Works out the new texts; nothing changes yet.
  void findTexts() {
    for (const int id : textRows(m_state)) {
      const PartRow& row = m_state.outline().row(id);
      std::optional<std::string> text = changed(row);
      if (!text) continue;
      m_rows.push_back(id);
      m_texts.push_back({row.node, *std::move(text)});
    }
  }

  /// The parts with words.
  const std::vector<int>& rows() const { return m_rows; }

  /// Bytes of the texts and the copies made of them.
  std::size_t size() const {
    std::size_t size = 0;
    for (const auto& [node, text] : m_texts) size += 2 * text.size();
    return size;
  }

  bool replaceTexts() {
    Email2& root = m_state.root();
    for (const auto& [node, text] : m_texts) {
      DataBuffer body;
      if (!body.append(std::string_view(text)) || !rewriteText(root, afterDropping(root, *node), body))
        return false;
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
  /// The text of a part after the change; nothing when no word is in it.
  std::optional<std::string> changed(const PartRow& row) const {
    const std::string text = textOf(row);
    if (!isHtml(row)) return m_inText.replacedIn(text);
    return changeHtmlPieces(text, [this](std::string_view piece) { return m_inHtml.replacedIn(piece); });
  }

  MessageState& m_state;
  const Words m_html;
  const Replacements m_inText, m_inHtml, m_inHeader, m_inLists;
  std::vector<int> m_rows;
  std::vector<std::pair<Email2*, std::string>> m_texts;
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
  replacer.findTexts();
  if (!replacer.rows().empty()) {
    if (Result<void> begun = beginContent(*m_state, replacer.size()); !begun) return std::move(begun).error();
    dropSignaturesOver(*m_state, replacer.rows());
    const bool isDone = replacer.replaceTexts();
    endContent(*m_state);
    if (!isDone) return noMemory();
  }
  if (Result<void> done = replacer.replaceInHeader(); !done) return std::move(done).error();
  return replacer.count();
}

}  // namespace mailtree
