// email/transform/tidy.cpp - a tree brought into better order: bodies into their enclosures, encodings that
// survive transport, file names without directories, a page without spam tricks.

#include "mailtree/email/internal.h"
#include "mailtree/mime/html/HtmlPage.h"

namespace mailtree {
namespace {

constexpr const char* kQuotedPrintable = "quoted-printable";

/// Us-ascii means 7bit. Output mends a text which is not, but writes the text of an attached file as it stands.
void encodeForEmail(Email2& node, LogBase& log) {
  const int codePage = node.emailCodePage();
  if (codePage == 0) return setTransferEncoding(node, kQuotedPrintable, log);
  node.setEncodingViaCodePage(codePage, 0, log);
  if (promises7bit(node) && !isConvertibleText(node.traits()) && !node.m_body.is7bit(0))
    setTransferEncoding(node, kQuotedPrintable, log);
}

void safeguardText(Email2& node, LogBase& log) {
  const bool is8bitEncoding =
      node.m_transferEncoding.equalsIgnoreCase("8bit") || node.m_transferEncoding.equalsIgnoreCase("binary");
  if (is8bitEncoding || !node.m_body.is7bit(0)) encodeForEmail(node, log);
}

void safeguard(Email2& node, LogBase& log) {
  // What holds parts must not be encoded itself (RFC 2045, 6.4).
  if (isEncoded(node) || node.isMultipart()) return;
  const std::string_view type = node.m_contentType.m_type;
  if (isType(type, "text/html")) {
    if (node.emailCodePage() != kCpUsAscii) encodeForEmail(node, log);
    return;
  }
  if (type.empty() || beginsWithNoCase(type, "text/")) return safeguardText(node, log);
  if (node.m_transferEncoding.equalsIgnoreCase("binary")) setTransferEncoding(node, "base64", log);
}

/// A name without its directories, and whether it had any.
struct BareName {
  StringBuffer text;
  bool isShorter = false;
};

BareName bareName(const StringBuffer& given, LogBase& log) {
  BareName name{copyOf(given)};
  decodeFilename(name.text, log);
  const std::size_t before = name.text.getSize();
  name.text.stripDirectory();
  name.isShorter = name.text.getSize() != before;
  return name;
}

/// What has no path in it is not rewritten, and so keeps the form in which it was received.
void stripPaths(Email2& node, LogBase& log) {
  if (node.m_dispFilename.isEmpty() && node.m_contentType.m_name.isEmpty()) return;
  StringBuffer given;
  node.getFilenameUtf8(given, log);
  const BareName file = bareName(given, log);
  const BareName parameter = bareName(node.m_contentType.m_name, log);
  if (parameter.isShorter) node.setName(parameter.text, log);
  if (given.isEmpty() || node.m_dispFilename.equals(file.text.getString())) return;
  const StringBuffer disposition = copyOf(node.m_disposition);
  if (node.m_header.hasField("Content-Disposition", log))
    node.setContentDispositionUtf8(disposition.getString(), file.text.getString(), log);
  else if (!node.m_dispFilename.isEmpty())  // taken from the type
    node.m_dispFilename.setString(file.text);
}

/// Runs a change on every live node.
template <class Change>
void changeEach(Email2& root, Change&& change) {
  neverThrow(Walk::stop, [&] {
    return walkTree(root, [&](Email2& node) {
      change(node);
      return Walk::onward;
    });
  });
}

}  // namespace

void Email2::moveMtMixedPlainTextToAlt(LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "moveMtMixedPlainTextToAlt");
  const Email2* const first = getPart(0);
  if (!isMultipartMixed() || !first || findMultipartEnclosure(kAlternative, 0)) return;
  log.LogDataSb("sbCt", first->m_contentType.m_type);
  // Deliberate: compared with regard to case; types are lower case from loading on.
  if (!first->m_contentType.m_type.equals("text/plain")) return;

  EmailPtr text(extractSubpartByIndex(0));
  if (log.m_verboseLogging) log.logInfo("Did not find an existing ALTERNATIVE enclosure, adding one...");
  addAlternativeEnclosure(log);
  // Deliberate: a text for which no enclosure could be made is gone.
  if (Email2* const enclosure = findMultipartEnclosure(kAlternative, 0))
    enclosure->insertSubPartAtIndex(text.release(), -1);
}

void Email2::checkMoveHtmlToRelated(Email2& from, Email2& to, LogBase&) {
  if (!from.isLive() || !to.isLive()) return;
  for (int i = 0; i < from.getNumParts(); ++i) {
    const Email2* const part = from.getPart(i);
    if (!part || !part->equalsContentType("text/html")) continue;
    to.insertSubPartAtIndex(from.extractSubpartByIndex(i), -1);
    return;
  }
}

void Email2::safeguardBodies(LogBase& log) {
  changeEach(*this, [&](Email2& node) { safeguard(node, log); });
}

void Email2::removeAttachmentPaths(LogBase& log) {
  changeEach(*this, [&](Email2& node) { stripPaths(node, log); });
}

void Email2::unSpamify(LogBase& log) {
  if (!isLive()) return;
  const Email2* const part = getHtmlAlternative();
  DataBuffer body;
  if (!part || !part->getEffectiveBodyData(*this, body, log) || body.isEmpty()) return;
  neverThrow(false, [&] {
    _svHtml page;
    page.setHtmlN(body.view().data(), body.getSize());
    page.unSpam(log);
    StringBuffer cleaned, type("text/html");
    page.getHtml(cleaned);
    body.clear();
    body.append(cleaned);
    return setBody(body, /*isText=*/true, type, /*outPart=*/nullptr, log);
  });
}

}  // namespace mailtree
