// email/bodies/read.cpp - the bytes of a node that a reader would see as its body.
#include <algorithm>
#include <string_view>

#include "mailtree/email/Email2.h"

namespace mailtree {
namespace {

constexpr std::string_view kMediaPrefixes[] = {"application", "image", "video", "audio"};

/// Deliberate: compared with regard to case; types are lower case from loading on.
bool isMedia(std::string_view type) noexcept {
  return std::ranges::any_of(kMediaPrefixes,
                             [&](std::string_view prefix) { return type.starts_with(prefix); });
}

/// Where reading goes on below a multipart: its first part, or its second when only that one is a body. Null
/// when there is no first.
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

/// Deliberate: media is no body, and empties the buffer of whatever the caller had in it.
bool appendLeaf(const Email2& leaf, DataBuffer& out) {
  if (!isMedia(leaf.m_contentType.m_type)) return out.append(leaf.m_body);
  out.clear();
  return false;
}

}  // namespace

bool Email2::getEffectiveBodyData(const Email2&, DataBuffer& out, LogBase&) const {
  const Email2* node = this;
  while (node && node->isLive()) {
    const Email2* const next = node->isMultipart() ? firstReadable(*node) : nullptr;
    if (next) {
      node = next;
      continue;
    }
    if (node->getNumParts() == 0) return appendLeaf(*node, out);
    if (const Email2* body = firstLeafBody(*node)) return out.append(body->m_body);
    node = node->getPart(0);
  }
  return false;
}

}  // namespace mailtree
