// email/bodies/read.cpp - the plain-text and HTML bodies, and the displayed body of any node.
#include <algorithm>
#include <string_view>

#include "mailtree/email/Email2.h"
#include "mailtree/mime/coding/ContentCoding.h"

namespace mailtree {
namespace {

constexpr std::string_view kMediaPrefixes[] = {"application", "image", "video", "audio"};

/// Deliberate: case-sensitive; types are lower case after loading.
bool isMedia(std::string_view type) noexcept {
  return std::ranges::any_of(kMediaPrefixes,
                             [&](std::string_view prefix) { return type.starts_with(prefix); });
}

/// The subpart of a multipart to read: the first, or the second when only that one is a body. Null when there
/// is no first.
const Email2* firstReadable(const Email2& multipart) {
  Email2* const first = multipart.getPart(0);
  if (!first || !first->isNotAlternativeBody()) return first;
  Email2* const second = multipart.getPart(1);
  return second && !second->isNotAlternativeBody() ? second : first;
}

const Email2* firstLeafBody(const Email2& node) {
  for (int i = 0; i < node.getNumParts(); ++i) {
    Email2* const child = node.getPart(i);
    if (!child || !child->isLive() || child->getNumParts() > 0) continue;
    if (!child->isNotAlternativeBody()) return child;
  }
  return nullptr;
}

/// Deliberate: a dead child is returned too, and ends the search.
Email2* firstLeafOrDead(const Email2& node) {
  for (int i = 0; i < node.getNumParts(); ++i) {
    Email2* const child = node.getPart(i);
    if (!child) continue;
    if (!child->isLive()) return child;
    if (child->getNumParts() == 0 && !child->isNotAlternativeBody()) return child;
  }
  return nullptr;
}

/// The displayed body of a node: the bytes of the leaf that the search ends at, if any.
struct EffectiveBody {
  const DataBuffer* bytes = nullptr;
  bool isMedia = false;  ///< The leaf is application, image, video or audio, not text.
};

EffectiveBody effectiveBody(const Email2& start) {
  for (const Email2* node = &start; node && node->isLive();) {
    const Email2* const next = node->isMultipart() ? firstReadable(*node) : nullptr;
    if (next) {
      node = next;
      continue;
    }
    if (node->getNumParts() == 0) return {&node->m_body, isMedia(node->m_contentType.m_type)};
    if (const Email2* body = firstLeafBody(*node)) return {&body->m_body};
    node = node->getPart(0);
  }
  return {};
}

/// Appends the displayed body; media adds nothing.
void appendText(const Email2& node, StringBuffer& out) {
  const EffectiveBody body = effectiveBody(node);
  if (body.bytes && !body.isMedia) out.append(*body.bytes);
}

/// Follows first parts down to a multipart/alternative or a single part. Null when a part is missing or dead.
Email2* endOfFirstParts(Email2& start) {
  Email2* node = &start;
  while (node && node->isLive() && node->isMultipart() && !node->isMultipartAlternative())
    node = node->getPart(0);
  return node && node->isLive() ? node : nullptr;
}

/// The body of a type at that end: an alternative, or the single part itself.
Email2* findBodyOnFirstParts(Email2& start, const char* type) {
  Email2* const end = endOfFirstParts(start);
  if (!end) return nullptr;
  if (end->isMultipartAlternative()) return end->getAlternativeByContentType(type);
  return end->equalsContentType(type) ? end : nullptr;
}

/// Its bytes: the displayed body of an alternative, the stored body of a single part.
EffectiveBody bytesOnFirstParts(Email2& start, const char* type) {
  const Email2* const part = findBodyOnFirstParts(start, type);
  if (!part) return {};
  return part == endOfFirstParts(start) ? EffectiveBody{&part->m_body} : effectiveBody(*part);
}

bool appendQp(Email2& start, const char* type, StringBuffer& out) {
  const EffectiveBody body = bytesOnFirstParts(start, type);
  if (!body.bytes) return false;
  if (!body.isMedia) ContentCoding::encodeQuotedPrintable(body.bytes->getData2(), body.bytes->getSize(), out);
  return true;
}

bool appendAlternative(Email2& root, const char* type, StringBuffer& out) {
  const Email2* const part = root.getAlternativeByContentType(type);
  if (part) appendText(*part, out);
  return part != nullptr;
}

}  // namespace

bool Email2::equalsContentType(const char* type) const {
  return isLive() && equalsNoCase(m_contentType.m_type, viewOf(type));
}

bool Email2::getPlainTextBodyUtf8(const Email2&, StringBuffer& out, LogBase&) {
  if (!isLive()) return false;
  const Email2* const report = isMultipartReport() ? getPart(0) : nullptr;
  if (report || equalsContentType("text/plain")) {
    appendText(report ? *report : *this, out);
    return true;
  }
  return appendAlternative(*this, "text/plain", out);
}

bool Email2::getHtmlBodyUtf8(const Email2&, StringBuffer& out, LogBase&) {
  if (!isLive()) return false;
  if (!equalsContentType("text/html")) return appendAlternative(*this, "text/html", out);
  appendText(*this, out);
  return true;
}

bool Email2::getPlainTextBodyQP(const Email2&, StringBuffer& out, StringBuffer&, LogBase&) {
  return isLive() && appendQp(*this, "text/plain", out);
}

bool Email2::getHtmlBodyQP(const Email2&, StringBuffer& out, StringBuffer&, LogBase&) {
  return isLive() && appendQp(*this, "text/html", out);
}

bool Email2::hasPlainTextBody() { return findPlainTextPart() != nullptr; }

bool Email2::hasHtmlBody() { return isLive() && findBodyOnFirstParts(*this, "text/html"); }

Email2* Email2::findPlainTextPart() { return isLive() ? findBodyOnFirstParts(*this, "text/plain") : nullptr; }

bool Email2::getEffectiveBodyData(const Email2&, DataBuffer& out, LogBase&) const {
  const EffectiveBody body = effectiveBody(*this);
  if (body.isMedia) out.clear();  // Deliberate: even the caller's earlier content.
  return body.bytes && !body.isMedia && out.append(*body.bytes);
}

void Email2::getEffectiveBodyMb(const Email2&, int codePage, DataBuffer& out, LogBase& log) const {
  if (!isLive()) return;
  out.clear();
  const EffectiveBody body = effectiveBody(*this);
  if (!body.bytes || body.isMedia) return;
  if (codePage < 1 || codePage == kCpUtf8) {
    out.append(*body.bytes);
    return;
  }
  EncodingConvert::EncConvert(kCpUtf8, codePage, body.bytes->getData2(), body.bytes->getSize(), out, log);
}

DataBuffer* Email2::getEffectiveBodyObject3(const Email2&) {
  for (Email2* node = this; node && node->isLive();) {
    Email2* const first = node->getPart(0);
    if (node->isMultipart() && first) {
      node = first;
      continue;
    }
    if (node->getNumParts() == 0) return &node->m_body;
    Email2* const leaf = firstLeafOrDead(*node);
    node = leaf ? leaf : first;
  }
  return nullptr;
}

}  // namespace mailtree
