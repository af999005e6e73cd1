// email/structure/construction.cpp - creates multipart enclosures: empty ones, and from a node with content.
//
// A node that becomes an enclosure stays the same object, so that pointers to the root remain valid and the
// message's header fields stay where they are.
#include <algorithm>

#include "mailtree/base/Platform.h"
#include "mailtree/email/structure/internal.h"

namespace mailtree {
namespace {

/// Gives a node a multipart type with a new boundary.
void setEnclosureType(Email2& node, const char* type, LogBase& log) {
  StringBuffer boundary;
  Psdk::generateBoundary(boundary, log);
  node.setContentTypeUtf8(type, nullptr, nullptr, nullptr, 0, boundary.getString(), nullptr, nullptr, log);
}

Email2* createEmptyMultipart(_svEmailCommon& common, const char* type, LogBase& log) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    EmailPtr enclosure(Email2::createNewObject0(common));
    if (!enclosure) return nullptr;
    setEnclosureType(*enclosure, type, log);
    return enclosure.release();
  });
}

/// The disposition is not moved, so an attached text, which had its own bytes, may become a text that output
/// converts from utf-8.
void moveBody(Email2& from, Email2& to) {
  const bool hadOwnBytes = !isConvertibleText(from.traits());
  to.m_body.takeData(from.m_body);
  if (!hadOwnBytes || !isConvertibleText(to.traits())) return;
  DataBuffer utf8;
  if (receivedTextToUtf8(labelledCharset(from).getName(), to.m_body.view(), utf8).converted)
    to.m_body.takeData(utf8);
}

/// Moves children or body to another node, which takes over type and encoding.
bool moveContent(Email2& from, Email2& to, LogBase& log) {
  to.m_contentType.copyFrom(from.m_contentType);
  to.refreshContentTypeHeader(log);
  setTransferEncoding(to, from.m_transferEncoding.getString(), log);
  if (from.isMultipart() && !from.m_subParts.transferPtrs(to.m_subParts)) return false;
  // A multipart that could not be split has its content as body.
  if (to.m_subParts.getSize() == 0) moveBody(from, to);
  return true;
}

/// An empty text needs no part. A missing media type means text too.
bool isEmptyText(std::string_view type, const DataBuffer& body) noexcept {
  return body.isEmpty() && (type.empty() || equalsNoCase(type, "text/plain"));
}

bool convertToEnclosure(Email2& node, const char* type, LogBase& log) {
  EmailPtr content(Email2::createNewObject(*node.m_common));
  if (!content || !moveContent(node, *content, log)) return false;
  if (!isEmptyText(node.m_contentType.m_type, content->m_body))
    node.insertSubPartAtIndex(content.release(), -1);
  setEnclosureType(node, type, log);
  node.removeHeaderField("Content-Transfer-Encoding");
  return true;
}

/// Whether unlabelled bytes decode as text, which is then in `utf8`.
bool decodesAsText(const Email2& node, DataBuffer& utf8) {
  const auto isNoText = [](char c) { return isControlAscii(c) && !isSpaceAscii(c) && c != '\x1B'; };
  const std::string_view bytes = node.m_body.view();
  if (std::ranges::any_of(bytes, isNoText)) return false;
  const _svCharset charset = labelledCharset(node);
  const char* const label = charset.getCodePage() != 0 ? charset.getName() : "unknown";
  const DecodedText decoded = receivedTextToUtf8(label, bytes, utf8);
  if (decoded.origin == TextOrigin::undetected) return false;
  return decoded.converted || utf8.append(bytes);
}

void fillWithText(Email2& part, DataBuffer& utf8, LogBase& log) {
  part.m_body.takeData(utf8);
  part.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  part.setEncodingViaCodePage(part.emailCodePage(), 0, log);
  if (isDeclared7bit(part) && part.m_body.hasLineLonger(kMaxLine7bit))
    setTransferEncoding(part, "quoted-printable", log);
}

void fillWithBytes(Email2& part, DataBuffer& bytes, LogBase& log) {
  part.m_body.takeData(bytes);
  part.setContentTypeUtf8("application/octet-stream", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr,
                          log);
  setTransferEncoding(part, "base64", log);
}

Email2* moveBytesToPart(Email2& node, LogBase& log) {
  EmailPtr owned(Email2::createNewObject0(*node.m_common));
  DataBuffer utf8;
  const bool isText = decodesAsText(node, utf8);
  if (!owned || !node.m_subParts.appendObject(owned.get())) return nullptr;
  Email2* const part = owned.release();  // the node owns it now
  if (isText) {
    node.chooseCharsetIfNecessary(utf8, log);
    fillWithText(*part, utf8, log);
  } else {
    fillWithBytes(*part, node.m_body, log);
  }
  node.m_body.clear();
  node.removeHeaderField("Content-Transfer-Encoding");
  Psdk::generateBoundary(node.m_contentType.m_boundary, log);
  node.refreshContentTypeHeader(log);
  return part;
}

}  // namespace

Email2* moveUnsplitBytesToPart(Email2& node, LogBase& log) {
  if (!node.isLive() || !node.m_common || !node.isMultipart()) return nullptr;
  if (node.m_subParts.getSize() != 0 || node.m_body.isEmpty()) return nullptr;
  return neverThrow<Email2*>(nullptr, [&] { return moveBytesToPart(node, log); });
}

void Email2::convertToMultipartX(const char* multipartType, LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "convertToMultipartX");
  if (log.m_verboseLogging) {
    log.LogDataSb("multipartContentType", viewOf(multipartType));
    log.LogDataSb("m_contentType", m_contentType.m_type);
  }
  if (!m_common) return;
  neverThrow(false, [&] { return convertToEnclosure(*this, multipartType, log); });
}

Email2* Email2::createEmptyMultipartDigest(_svEmailCommon& common, LogBase& log) {
  return createEmptyMultipart(common, "multipart/digest", log);
}

Email2* Email2::createEmptyMultipartRelated(_svEmailCommon& common, LogBase& log) {
  return createEmptyMultipart(common, "multipart/related", log);
}

Email2* Email2::createEmptyMultipartAlternative(_svEmailCommon& common, LogBase& log) {
  return createEmptyMultipart(common, "multipart/alternative", log);
}

bool Email2::addAlternativeEnclosure(LogBase& log) {
  LogContextExitor context(log, "addAlternativeEnclosure");
  if (!isLive() || !m_common) return false;
  if (log.m_verboseLogging) log.logInfo("Adding an alternative MIME enclosure...");
  moveUnsplitBytesToPart(*this, log);
  if (!isMultipartMixed()) {
    convertToMultipartX("multipart/alternative", log);  // this node becomes the enclosure
    return true;
  }

  if (log.m_verboseLogging)
    log.logInfo("Adding a new alternative MIME enclosure beneath the multipart/mixed");
  EmailPtr enclosure(createEmptyMultipartAlternative(*m_common, log));
  if (!enclosure) return false;
  insertSubPartAtIndex(enclosure.release(), 0);  // this node owns it now
  return true;
}

Email2* Email2::ensureAlternativeEnclosure(LogBase& log) {
  const int kind = static_cast<int>(EnclosureKind::alternative);
  if (Email2* enclosure = findMultipartEnclosure(kind, 0)) return enclosure;
  return addAlternativeEnclosure(log) ? findMultipartEnclosure(kind, 0) : nullptr;
}

}  // namespace mailtree
