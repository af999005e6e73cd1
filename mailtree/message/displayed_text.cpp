#include "mailtree/message/displayed_text.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "mailtree/base/Search.h"
#include "mailtree/base/UnixLines.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/FlowedText.h"
#include "mailtree/mime/html/EnrichedText.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlText.h"

namespace mailtree {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr std::pair<std::string_view, EnrichedForm> kEnrichedTypes[] = {
    {"text/enriched", EnrichedForm::enriched}, {"text/richtext", EnrichedForm::richtext}};

bool isFlowed(const PartRow& row) {
  return row.node->m_contentType.m_formatFlowed && isPlain(row) &&
         equalsNoCase(row.contentType, "text/plain");
}

bool hasDelSp(const PartRow& row) {
  const std::string* const delSp = row.node->m_contentType.m_otherParams.find("delsp");
  return delSp && equalsNoCase(trim(*delSp), "yes");
}

/// Who wrote a message of a digest, when and about what, and its text.
std::string entryText(const PartRow& row, LoadBudget& budget) {
  const Result<Message> entry = loadMessage(row.node->m_body, nullptr, &budget);
  if (!entry) return {};
  std::string text;
  const auto addField = [&](std::string_view name, const std::string& value) {
    if (!value.empty()) text.append(name).append(": ").append(value).append("\n");
  };
  if (const std::optional<_svEmailAddress> sender = senderOf(entry->email2()))
    addField("From", displayForm(*sender));
  for (const char* name : {"Date", "Subject"}) addField(name, entry->header(name).value_or(std::string()));
  MessageState& state = MessageState::of(*entry);
  return text + "\n" + displayedText(state.outline(), state.displayed(), /*budget=*/nullptr);
}

void appendBlock(std::string& text, std::string&& next) {
  if (next.empty()) return;
  if (text.empty()) {
    text = std::move(next);
    return;
  }
  text += text.ends_with('\n') ? "\n" : "\n\n";
  text += next;
}

/// Up to the last line that separates a signature; the whole text when nothing else is in it.
std::string_view withoutSignature(std::string_view text) {
  constexpr std::string_view kSeparator = "-- ";
  std::size_t end = text.size();
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t lineEnd = std::min(text.find('\n', begin), text.size());
    if (text.substr(begin, lineEnd - begin) == kSeparator) end = begin;
    begin = lineEnd + 1;
  }
  return trim(text.substr(0, end)).empty() ? text : text.substr(0, end);
}

/// The plain text of something that is shown; empty for pictures and sound.
std::string plainTextOf(const PartRow& row, LoadBudget* budget) {
  if (row.isMessage()) return budget ? entryText(row, *budget) : std::string();
  if (isHtml(row)) return textOfHtml(readableTextOf(row));
  for (const auto& [type, form] : kEnrichedTypes)
    if (equalsNoCase(row.contentType, type)) return textOfEnriched(readableTextOf(row), form);
  return readableTextOf(row);
}

std::string_view withoutByteOrderMark(std::string_view text) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  return text;
}

std::string validTextOf(const PartRow& row) {
  if (!isReadAsText(row)) return {};
  auto [text, isUtf8] = readTextOf(row);
  if (!isUtf8) {
    std::string valid;
    decodeToUtf8(kCpUtf8, text, valid);
    text = std::move(valid);
  }
  text.erase(0, text.size() - withoutByteOrderMark(text).size());
  return std::move(text);
}

/// Bytes of the printable ASCII words at the beginning that single blanks separate, at most so many.
std::size_t asciiWordsIn(std::string_view text, std::size_t most) {
  text = text.substr(0, most);
  text = text.substr(0, findUnprintable<>(text));
  return trimRight(text.substr(0, findSubstring(text, "  "))).size();
}

/// Appends a line with one blank for any number, and one before it. False when there is no room left.
/// @param left  characters.
bool appendWords(std::string_view line, std::string& out, std::size_t& left) {
  bool isAfterBlank = !out.empty();
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t begin = at;
    if (isSpaceAscii(line[at])) {
      isAfterBlank = !out.empty();
      ++at;
      continue;
    }
    if (isAfterBlank) {
      if (left <= 1) return false;  // a blank at the end says nothing
      out += ' ';
      --left;
    }
    if (left == 0) return false;
    isAfterBlank = false;
    at += asciiWordsIn(line.substr(at), left);
    left -= at - begin;
    if (at == begin) {
      nextCodePoint(line, at);
      --left;
    }
    out.append(line, begin, at - begin);
  }
  return true;
}

}  // namespace

std::string readableTextOf(const PartRow& row) {
  if (!isFlowed(row)) return linesOf(row).text;
  return unwrapFlowed(validTextOf(row), hasDelSp(row));
}

bool isShownAsLines(const PartRow& row) {
  const auto isEnriched = [&row](const auto& kind) { return equalsNoCase(row.contentType, kind.first); };
  return isReadAsText(row) && !isHtml(row) && !isFlowed(row) &&
         std::ranges::none_of(kEnrichedTypes, isEnriched);
}

PartLines linesOf(const PartRow& row) {
  const std::optional<std::string_view> stored = isReadAsText(row) ? storedTextOf(row) : std::nullopt;
  return {withUnixLines(stored ? withoutByteOrderMark(*stored) : validTextOf(row)), stored.has_value()};
}

std::string displayedText(const Outline& outline, const Displayed& display, LoadBudget* budget) {
  std::string text;
  for (const int id : display.textBody) appendBlock(text, plainTextOf(outline.row(id), budget));
  return text;
}

std::string quotableTextOf(const Message& message) {
  MessageState& state = MessageState::of(message);
  std::string text;
  for (const int id : state.displayed().textBody) {
    const PartRow& row = state.outline().row(id);
    std::string shown = plainTextOf(row, &state.opened.common->m_budget);
    if (!row.isMessage()) shown.resize(withoutSignature(shown).size());
    appendBlock(text, std::move(shown));
  }
  return text;
}

std::string displayedHtml(const Outline& outline, const Displayed& display, LoadBudget* budget) {
  std::string html;
  bool hasHtml = false;
  for (const int id : display.htmlBody) {
    const PartRow& row = outline.row(id);
    hasHtml |= isHtml(row);
    std::string text = isHtml(row) ? readableTextOf(row) : plainTextOf(row, budget);
    if (isHtml(row) && html.empty())
      html = std::move(text);
    else if (isHtml(row))
      html += text;
    else if (!text.empty())
      html.append("<div style=\"white-space: pre-wrap\">").append(escapeHtml(text)).append("</div>\n");
  }
  return hasHtml ? html : std::string();
}

std::string previewOf(std::string_view text, std::size_t length) {
  std::string preview;
  preview.reserve(std::min(length, text.size()));
  std::size_t left = length;  // characters
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trim(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.starts_with('>') && !appendWords(line, preview, left)) break;
  }
  return preview;
}

std::string Part::text() const { return readableTextOf(MessageState::rowOf(*this)); }

std::string Message::text() const {
  return displayedText(m_state->outline(), m_state->displayed(), &m_state->opened.common->m_budget);
}

std::string Message::html() const {
  return displayedHtml(m_state->outline(), m_state->displayed(), &m_state->opened.common->m_budget);
}

std::string Message::preview(std::size_t length) const { return previewOf(text(), length); }

}  // namespace mailtree
