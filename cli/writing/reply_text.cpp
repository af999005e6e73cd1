#include "cli/writing/reply_text.h"

#include <string_view>

#include "mailtree/email/transform/reply_header.h"
#include "mailtree/message/outline.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/html/HtmlEscape.h"

namespace mailtree::cli {
namespace {

/// Escapes text as an HTML paragraph; line breaks become <br>.
std::string asHtml(std::string_view text) {
  StringBuffer lines(escapeHtml(trimRight(text)));
  lines.replaceAllOccurances("\r\n", "<br>\r\n");
  return "<p>" + lines.extractString() + "</p>\r\n";
}

/// Checks the reply header, not the type: HTML labelled as plain text is quoted as HTML.
bool isQuotedAsHtml(std::string_view body) { return body.starts_with(kHtmlReplyHeader); }

bool isQuoted(std::string_view body) { return isQuotedAsHtml(body) || body.starts_with(kPlainReplyHeader); }

/// Replaces a body. HTML must declare the charset it is written in.
bool replaceBody(Email2& email, Email2& leaf, bool isHtml, const std::string& text, LogBase& log) {
  DataBuffer body;
  StringBuffer type;
  if (!body.append(std::string_view(text)) || !type.setString(leaf.m_contentType.m_type)) return false;
  const int before = email.emailCodePage();
  email.chooseCharsetIfNecessary(body, log);
  const int after = email.emailCodePage();
  if (isHtml && after != before && isConvertibleText(leaf.traits())) email.prepHtmlBody(body, log);
  return Email2::replaceEmailBody(&leaf, body, /*isText=*/true, after, type, log);
}

}  // namespace

QuotedTexts::QuotedTexts(Email2& email) : m_email(email) {
  walk(email, [this](const Email2& node) { m_sizes.emplace(&node, node.m_body.getSize()); });
}

bool QuotedTexts::hasNewSize(const Email2& node) const {
  const auto known = m_sizes.find(&node);
  return known == m_sizes.end() || known->second != node.m_body.getSize();
}

bool QuotedTexts::prependText(const std::string& text, LogBase& log) const {
  // Mail clients would join the lines of flowed text (RFC 3676).
  _svContentType::m_noFormatFlowed = true;
  bool found = false;
  for (const PartRow& row : outlineOf(m_email).rows) {
    if (!row.isText() || !hasNewSize(*row.node)) continue;
    const std::string body = textOf(row);
    if (!isQuoted(body)) continue;
    const bool isHtml = isQuotedAsHtml(body);
    const std::string added = isHtml ? asHtml(text) : text + "\r\n";
    if (!replaceBody(m_email, *row.node, isHtml, added + body, log)) return false;
    found = true;
  }
  return found;
}

}  // namespace mailtree::cli
