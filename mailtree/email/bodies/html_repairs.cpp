// email/bodies/html_repairs.cpp - repairs of received bodies: utf-16, files mislabelled as HTML, HTML with a
// missing or wrong charset, and overlong lines.

#include "mailtree/base/Search.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/html/Html.h"
#include "mailtree/mime/html/HtmlPage.h"

namespace mailtree {
namespace {

/// Lines of this length or more must be encoded.
constexpr std::size_t kLongHtmlLine = 2'000;

bool isAttachedFile(const Email2& node) noexcept {
  return node.m_disposition.equals("attachment") && !node.m_dispFilename.isEmpty();
}

bool isHtml(const Email2& node) noexcept { return node.m_contentType.m_type.equals("text/html"); }

/// Whether the name shows that a part labelled as HTML is a document.
bool isNamedAsDocument(const Email2& node, LogBase& log) {
  StringBuffer filename;
  node.getFilenameUtf8(filename, log);
  return filename.containsSubstringNoCase(".doc") || filename.containsSubstringNoCase(".pdf");
}

bool holdsUtf16Markup(const DataBuffer& body) noexcept {
  return body.findBytes("<\0", 2) >= 0 && body.findBytes(">\0", 2) >= 0;
}

void utf16BodyToUtf8(Email2& node) {
  DataBuffer utf8;
  if (!node.m_body.cvUnicodeToUtf8_db(utf8)) return;
  node.m_body.takeData(utf8);
  node.m_repairs.add(Repair::utf16);
}

/// Code pages in which 7-bit HTML needs no META tag: ISO 8859, Windows, utf-8.
bool holdsAsciiAsItIs(int codePage) noexcept {
  return (codePage >= 28591 && codePage <= 28605) || (codePage >= 1250 && codePage <= 1257) ||
         codePage == kCpUtf8;
}

bool replaceBy(DataBuffer& html, const StringBuffer& page) {
  DataBuffer bytes;
  if (!bytes.append(page)) return false;
  html.takeData(bytes);
  return true;
}

int codePageOf(const StringBuffer& charset) { return codePageOfCharset(charset.view()); }

}  // namespace

void Email2::checkFixEmailTextBody(LogBase& log) {
  if (!isLive() || !m_contentType.m_type.beginsWith("text/") || isAttachedFile(*this)) return;
  if (m_body.getSize() >= 3 && m_body.view().starts_with("\xFF\xFE")) {
    log.logInfo("Converting text email body from utf16 to utf-8...");
    // Deliberate: the email's charset does not change.
    utf16BodyToUtf8(*this);
    return;
  }
  if (emailCodePage() == kCpUtf8 && m_body.replaceChar('\0', ' ') != 0) m_repairs.add(Repair::nulBytes);
}

void Email2::checkFixUnicodeHtml(LogBase& log) {
  if (!isLive() || !isHtml(*this) || emailCodePage() != 0) return;
  if (m_disposition.equals("attachment") || !holdsUtf16Markup(m_body) || isNamedAsDocument(*this, log))
    return;
  log.logInfo("Converting email body from utf-16 to utf-8...");
  use_codepage(kCpUtf8);
  utf16BodyToUtf8(*this);
}

void Email2::checkFixNotReallyHtml() {
  if (!isLive() || !isHtml(*this) || !m_disposition.equals("attachment") ||
      !m_dispFilename.endsWithIgnoreCase(".pdf"))
    return;
  m_contentType.m_type.setString("application/pdf");
  m_repairs.add(Repair::notHtml);
}

void Email2::checkHtmlLongLineLength(LogBase& log) {
  if (!isLive() || !m_transferEncoding.equals("7bit") || !isHtml(*this)) return;
  if (!m_body.hasLineLonger(kLongHtmlLine - 1)) return;
  log.logInfo("Using quoted-printable because the longest HTML line length is 2000 chars or more.");
  m_header.replaceMimeFieldUtf8("content-transfer-encoding", "quoted-printable", log);
  m_transferEncoding.setString("quoted-printable");
  m_repairs.add(Repair::longLines);
}

void Email2::prepHtmlBody(DataBuffer& html, LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "prepHtmlBody");
  StringBuffer page(html.view());
  const bool isCompleted = _svHtmlHelp::ensureStructure(page);
  StringBuffer declared;
  const bool isDeclared = _svHtmlHelp::getCharset(page, declared);
  if (isDeclared && log.m_verboseLogging) log.LogDataSb("existingHtmlMetaCharset", declared);

  if (emailCodePage() == 0) chooseCharsetIfNecessary(html, log);
  const int codePage = emailCodePage();
  if (log.m_verboseLogging) log.LogDataLong("emailCodePage", codePage);

  if (!isDeclared) {
    // Deliberate: the completed structure is discarded too.
    if (codePage == kCpUsAscii || (html.is7bit(0) && holdsAsciiAsItIs(codePage))) return;
  } else {
    if (codePageOf(declared) == codePage) {
      if (isCompleted) replaceBy(html, page);
      return;
    }
    if (log.m_verboseLogging)
      log.logInfo("Replacing HTML charset META tag with charset that agrees with actual character encoding.");
    _svHtmlHelp::removeCharsetMetaTag(page, log);
  }
  _svHtmlHelp::addCharsetMetaTag(page, get_charset_name(), log);
  replaceBy(html, page);
}

bool Email2::updateHtmlMetaCharset(LogBase& log) {
  if (!isLive() || emailCodePage() == 0) return false;
  Email2* const html = findHtmlPart();
  if (html) prepHtmlBody(html->m_body, log);
  return html != nullptr;
}

void Email2::captureHyperlinkUrls(ExtPtrArraySb& urls) {
  if (!isLive()) return;
  for (Email2* const alternative : {getPlainTextAlternative(), getHtmlAlternative()})
    if (alternative && alternative != this) alternative->captureHyperlinkUrls(urls);
  const DataBuffer* const body = getEffectiveBodyObject3(*this);
  if (!body) return;
  LogNull log;
  _svHtml page;
  page.setHtmlN(body->view().data(), body->getSize());
  page.unSpam(log);
  page.getHyperlinkUrls2(urls, log);
}

}  // namespace mailtree
