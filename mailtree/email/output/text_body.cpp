#include "mailtree/email/output/text_body.h"

#include <string>

#include "mailtree/base/Platform.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/charset/WrittenCharset.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree {
namespace {

/// Gives a page a whole structure and a META tag that names the charset in which it travels.
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

/// The page is mended while it still is utf-8. Everything added is ASCII, so that the order does not show;
/// but markup read after a conversion would see the double bytes of iso-2022-jp as tags.
bool convertHtml(const Email2& node, int codePage, DataBuffer& out, LogBase& log) {
  StringBuffer html(node.m_body.view());
  const bool isEmails = codePage == node.emailCodePage();
  const std::string charset(isEmails ? viewOf(node.get_charset_name()) : charsetNameOf(codePage));
  declareCharset(html, charset.c_str(), log);
  return convert(html, codePage, out, log);
}

/// Line ends come first: afterwards any unit could hold a byte that looks like one.
bool convertToWideUnits(const Email2& node, int codePage, DataBuffer& out, LogBase& log) {
  if (isEncoded(node) || !node.m_body.containsBareCRLF())
    return convert(node.m_body.view(), codePage, out, log);
  StringBuffer normalized(node.m_body.view());
  return normalized.toCRLF() && convert(normalized, codePage, out, log);
}

bool convertText(const Email2& node, int codePage, DataBuffer& out, LogBase& log) {
  // Deliberate: an email in us-ascii is converted to the host's own code page, and no page is mended for it.
  if (codePage == kCpUsAscii) return convert(node.m_body.view(), Psdk::getAnsiCodePage(), out, log);
  if (hasWideUnits(codePage)) return convertToWideUnits(node, codePage, out, log);
  const bool isHtml = beginsWithNoCase(node.m_contentType.m_type, "text/html");
  return isHtml ? convertHtml(node, codePage, out, log) : convert(node.m_body.view(), codePage, out, log);
}

/// A label of our own is the name of a small set. One that was received has been true to its bytes for as long as
/// nobody changes them, and stays.
int codePageOfText(Email2& node, int wanted, LogBase& log) {
  if (node.m_header.isReceived(node.m_header.findField("Content-Type"))) return wanted;
  const int codePage = codePageToWrite(wanted, node.m_body.view());
  if (codePage != wanted) labelCodePage(node, codePage, log);
  return codePage;
}

void relabelUtf8(Email2& node, LogBase& log) {
  labelUtf8(node, log);
  if (promises7bit(node) && !node.m_body.is7bit(0)) setTransferEncoding(node, "quoted-printable", log);
}

}  // namespace

OutgoingBody outgoingText(Email2& node, LogBase& log) {
  OutgoingBody body = storedBody(node);
  body.normalizeLineEnds = true;
  if (body.headerCodePage == 0 || body.headerCodePage == kCpUtf8) return body;

  const int codePage = codePageOfText(node, body.headerCodePage, log);
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
