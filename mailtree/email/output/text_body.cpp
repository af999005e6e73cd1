#include "mailtree/email/output/text_body.h"

#include <string>

#include "mailtree/base/Platform.h"
#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/charset/WrittenCharset.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree {
namespace {

/// Completes the structure of the HTML and declares its output charset in a META tag.
void declareCharset(StringBuffer& html, const char* charset, LogBase& log) {
  LogContextExitor context(log, "processHtmlMeta");
  _svHtmlHelp::ensureStructure(html);
  StringBuffer declared;
  _svHtmlHelp::getCharset(html, declared);
  if (declared.equalsIgnoreCase(charset)) return;
  _svHtmlHelp::removeCharsetMetaTag(html, log);
  _svHtmlHelp::addCharsetMetaTag(html, charset, log);
}

bool convert(std::string_view utf8, int codePage, DataBuffer& out, LogBase& log) {
  return EncodingConvert::EncConvert(kCpUtf8, codePage, utf8.data(), utf8.size(), out, log);
}

/// Repairs the HTML while it is utf-8. Additions are ASCII, so the order makes no difference to them, but
/// tags searched for after conversion could be bytes of iso-2022-jp characters.
bool convertHtml(const Email2& node, int codePage, DataBuffer& out, LogBase& log) {
  StringBuffer html(node.m_body.view());
  const bool isEmails = codePage == node.emailCodePage();
  const std::string charset(isEmails ? viewOf(node.get_charset_name()) : charsetNameOf(codePage));
  declareCharset(html, charset.c_str(), log);
  return convert(html, codePage, out, log);
}

/// Normalises line breaks first, because converted units may contain the same bytes.
bool convertToWideUnits(const Email2& node, int codePage, DataBuffer& out, LogBase& log) {
  if (isEncoded(node) || !node.m_body.containsBareCRLF())
    return convert(node.m_body.view(), codePage, out, log);
  StringBuffer normalized(node.m_body.view());
  return normalized.toCRLF() && convert(normalized, codePage, out, log);
}

/// Whether nothing about the text changes in the code page.
bool isSameIn(const Email2& node, int codePage) {
  const bool isHtml = beginsWithNoCase(node.m_contentType.m_type, "text/html");
  return !isHtml && isAscii(node.m_body.view()) && keepsAscii(codePage);
}

bool convertText(const Email2& node, int codePage, DataBuffer& out, LogBase& log) {
  // Deliberate: us-ascii text is converted to the host's ANSI code page, and its HTML is not repaired.
  if (codePage == kCpUsAscii) return convert(node.m_body.view(), Psdk::getAnsiCodePage(), out, log);
  if (hasWideUnits(codePage)) return convertToWideUnits(node, codePage, out, log);
  const bool isHtml = beginsWithNoCase(node.m_contentType.m_type, "text/html");
  return isHtml ? convertHtml(node, codePage, out, log) : convert(node.m_body.view(), codePage, out, log);
}

/// A label that we write names a small charset. A received label is kept, because it is correct as long as
/// the bytes do not change.
int codePageOfText(Email2& node, int wanted, LogBase& log) {
  if (node.m_header.isReceived(node.m_header.findField("Content-Type"))) return wanted;
  const int codePage = codePageToWrite(wanted, node.m_body.view());
  if (codePage != wanted) labelCodePage(node, codePage, log);
  return codePage;
}

void relabelUtf8(Email2& node, LogBase& log) {
  labelUtf8(node, log);
  if (isDeclared7bit(node) && !node.m_body.is7bit(0)) setTransferEncoding(node, "quoted-printable", log);
}

}  // namespace

OutgoingBody outgoingText(Email2& node, LogBase& log) {
  OutgoingBody body = storedBody(node);
  body.normalizeLineEnds = true;
  if (body.headerCodePage == 0 || body.headerCodePage == kCpUtf8) return body;

  const int codePage = codePageOfText(node, body.headerCodePage, log);
  if (isSameIn(node, codePage)) return body;
  body.isConverted = convertText(node, codePage, body.converted, log);
  if (body.isConverted) {
    body.normalizeLineEnds = !hasWideUnits(codePage);
    return body;
  }
  relabelUtf8(node, log);
  body.headerCodePage = kCpUtf8;
  return body;
}

}  // namespace mailtree
