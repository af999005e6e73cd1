// email/output/xml.cpp - renders a tree as an XML document:
//
//   mime_message   the header fields, one element each, then one body
//     body         subparts of one mime_message each; then the node's own body in its transfer encoding
#include "mailtree/base/Xml.h"

#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

/// XML parsers reject elements nested deeper than 256 by default, and a part takes three.
constexpr int kMaxNestedXml = 80;

/// Marks the element as CDATA for readability, unless the body is encoded anyway.
void setBodyText(ClsXml& body, const StringBuffer& encoding, StringBuffer& text) {
  body.put_Cdata(!encoding.equalsIgnoreCase("base64") && !encoding.equalsIgnoreCase("quoted-printable"));
  body.takeContent(text.extractString());
}

/// Writes the parts of a node that is too deep for elements as MIME text.
void addPartsAsText(Email2& node, ClsXml& body, LogBase& log) {
  constexpr std::string_view kEmptyLine = "\r\n\r\n";
  StringBuffer mime;
  ProgressContext progress(nullptr);
  node.assembleMimeBody2(mime, nullptr, /*dotStuff=*/false, nullptr, progress, log, 0, /*qpFor8bit=*/false,
                         /*isTop=*/true);
  const std::size_t headerEnd = findSubstring(mime, kEmptyLine);
  if (headerEnd != std::string_view::npos) mime.text().erase(0, headerEnd + kEmptyLine.size());
  setBodyText(body, node.m_transferEncoding, mime);
}

bool isDamagedUtf8(const Email2& node) noexcept {
  return node.m_repairs.has(Repair::damagedText) && isConvertibleText(node.traits()) &&
         !isValidUtf8(node.m_body.view());
}

/// The body in its transfer encoding. Malformed text becomes U+FFFD, as in unencoded XML text.
void encodeBody(Email2& node, StringBuffer& text, LogBase& log) {
  if (!isDamagedUtf8(node)) return node.getMimeBodyEncodedUtf8(text, log);
  DataBuffer stored;
  stored.takeData(node.m_body);
  decodeToUtf8(kCpUtf8, stored.view(), node.m_body);
  node.getMimeBodyEncodedUtf8(text, log);
  node.m_body.takeData(stored);
}

bool fillElement(Email2& node, ClsXml& element, int level, LogBase& log);

/// Skips a part whose element could not be created.
void addSubparts(const Email2& node, ClsXml& body, int level, LogBase& log) {
  for (int i = 0; i < node.getNumParts(); ++i) {
    Email2* const part = node.getPart(i);
    if (!part) continue;
    const XmlHandle subpart(body.newChild("subpart", nullptr, nullptr));
    if (!subpart) continue;
    const XmlHandle message(subpart->newChild("mime_message", nullptr, nullptr));
    if (message) fillElement(*part, *message, level + 1, log);
  }
}

bool fillElement(Email2& node, ClsXml& element, int level, LogBase& log) {
  LogContextExitor context(log, "getEmailXml");
  if (!node.isLive()) return false;
  if (!node.m_header.mimeHeaderToXml(element, node.emailCodePage(), &node.m_bccAddrs, log)) return false;
  const XmlHandle body(element.newChild("body", nullptr, nullptr));
  if (!body) return false;

  const bool isTooDeep = level >= kMaxNestedXml && node.getNumParts() > 0;
  if (isTooDeep) {
    addPartsAsText(node, *body, log);
    return true;
  }
  addSubparts(node, *body, level, log);
  if (node.m_body.isEmpty()) return true;
  StringBuffer text;
  encodeBody(node, text, log);
  setBodyText(*body, node.m_transferEncoding, text);
  return true;
}

}  // namespace

bool Email2::getEmailXml(bool compact, StringBuffer& out, LogBase& log) {
  const XmlHandle document(ClsXml::createNewCls());
  if (!document) return false;
  document->put_TagUtf8("mime_message");
  safeguardBodies(log);
  getEmailXmlR(*document, log);
  document->put_EmitCompact(compact);
  document->getXml(/*fragment=*/false, out, log);
  return true;
}

bool Email2::getEmailXmlR(ClsXml& node, LogBase& log) { return fillElement(*this, node, /*level=*/0, log); }

}  // namespace mailtree
