#include "mailtree/message/quoting.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/UnixLines.h"
#include "mailtree/email/transform/original_message_header.h"
#include "mailtree/message/attribution.h"
#include "mailtree/message/displayed_text.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/FlowedText.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlFrame.h"

namespace mailtree {
namespace {

/// Removes a line from the front of a text.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

/// Removes the marks of earlier quotations, also "> > ", from the front of a line, and counts them.
std::size_t takeQuoteMarks(std::string_view& line) {
  std::size_t marks = 0;
  while (line.starts_with('>')) {
    line.remove_prefix(1);
    ++marks;
    const bool isNextApart = line.starts_with(" >") && (line.size() == 2 || line[2] == ' ' || line[2] == '>');
    if (isNextApart) line.remove_prefix(1);
  }
  if (marks > 0 && line.starts_with(' ')) line.remove_prefix(1);
  return marks;
}

// HTML

std::string inBrackets(std::string_view element, std::string_view content) {
  std::string html("<");
  return html.append(element).append(">").append(content).append("</").append(element).append(">\n");
}

std::string withBreaks(std::string_view lines) {
  std::string html;
  for (std::string_view rest = lines; !rest.empty();) {
    html += escapeHtml(takeLine(rest));
    if (!rest.empty()) html += "<br>\n";
  }
  return html;
}

/// One paragraph for each group of lines without an empty one.
std::string paragraphsOf(std::string_view text) {
  std::string html, lines;
  const auto endParagraph = [&] {
    if (!lines.empty()) html += inBrackets("p", withBreaks(lines));
    lines.clear();
  };
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = takeLine(rest);
    if (trim(line).empty())
      endParagraph();
    else
      lines.append(line).append("\n");
  }
  endParagraph();
  return html;
}

// Above the quoted text

QuotedFields quotedFieldsOf(const Message& message) {
  return {oneLine(message.from().text()), oneLine(message.header("Date").value_or(std::string())),
          oneLine(textOf(message.to())), oneLine(textOf(message.cc())), oneLine(message.subject())};
}

QuotedFields escaped(QuotedFields fields) {
  for (std::string* const value : {&fields.from, &fields.sent, &fields.to, &fields.cc, &fields.subject})
    *value = escapeHtml(*value);
  return fields;
}

/// A message without a date gets no empty line for it.
std::string withoutEmptySent(std::string head, std::string_view lineEnd) {
  const std::string empty = "Sent: " + std::string(lineEnd);
  if (const std::size_t at = head.find(empty); at != std::string::npos) head.erase(at, empty.size());
  return head;
}

/// The text of the answer as it is written before the quotation, with an empty line after it.
std::string ownText(std::string_view text) {
  const std::string own(trimRight(text));
  return own.empty() ? own : own + "\n\n";
}

AnswerText quotedAsLines(const Message& quoted, std::string_view text) {
  const std::string attribution = attributionOf(quoted), html = quoted.html();
  AnswerText answer{ownText(text) + attribution + "\n" + quotedLines(trimRight(quotableTextOf(quoted))), {}};
  if (!html.empty())
    answer.html = frameHtml(
        html, paragraphsOf(text) + paragraphsOf(attribution) + "<blockquote type=\"cite\">", "</blockquote>");
  return answer;
}

AnswerText quotedAsBlock(const Message& quoted, std::string_view text) {
  const QuotedFields fields = quotedFieldsOf(quoted);
  const std::string html = quoted.html();
  AnswerText answer{
      ownText(text) + withoutEmptySent(withUnixLines(plainReplyHeader(fields)), "\n") + quoted.text(), {}};
  if (!html.empty())
    answer.html =
        frameHtml(html, paragraphsOf(text) + withoutEmptySent(htmlReplyHeader(escaped(fields)), "<br>"), "");
  return answer;
}

AnswerText unflowedText(const Message& quoted, Quote quote, std::string_view text) {
  switch (quote) {
    case Quote::lines: return quotedAsLines(quoted, text);
    case Quote::block: return quotedAsBlock(quoted, text);
    case Quote::none: break;
  }
  return {std::string(text), {}};
}

}  // namespace

std::string quotedLines(std::string_view text) {
  std::string quoted;
  quoted.reserve(text.size() + text.size() / 16);
  while (!text.empty()) {
    std::string_view line = takeLine(text);
    quoted.append(takeQuoteMarks(line) + 1, '>');
    if (!line.empty()) quoted.append(" ").append(line);
    quoted += '\n';
  }
  return quoted;
}

std::string oneLine(std::string_view value) {
  std::string line(value);
  std::ranges::replace_if(line, isControlAscii, ' ');
  return std::string(trim(line));
}

AnswerText answerText(const Message& quoted, Quote quote, std::string_view text) {
  AnswerText answer = unflowedText(quoted, quote, withUnixLines(text));
  answer.plain = wrapFlowed(answer.plain);
  return answer;
}

}  // namespace mailtree
