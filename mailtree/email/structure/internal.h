// email/structure/internal.h - helpers for the types and children of nodes.
#pragma once

#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"
#include "mailtree/email/internal.h"

namespace mailtree {

inline constexpr std::string_view kMultipartMixed = "multipart/mixed";
inline constexpr std::string_view kMultipartReplace = "multipart/x-mixed-replace";
inline constexpr std::string_view kMultipartAlternative = "multipart/alternative";
inline constexpr std::string_view kMultipartRelated = "multipart/related";

/// Media type of a node; empty for a missing or a dead one.
inline std::string_view mediaType(const Email2* node) noexcept {
  return node && node->isLive() ? node->m_contentType.m_type.view() : std::string_view();
}

inline bool hasType(const Email2& node, std::string_view wanted) noexcept {
  return isType(mediaType(&node), wanted);
}

/// The child at an index; null for a missing or a dead one.
inline Email2* liveChild(const Email2& node, int index) noexcept {
  Email2* const child = node.m_subParts.at<Email2>(index);
  return child && child->isLive() ? child : nullptr;
}

/// Visits the live children in order.
template <class Visit>
void forEachChild(const Email2& node, Visit&& visit) {
  for (int i = 0; i < node.m_subParts.getSize(); ++i)
    if (Email2* child = liveChild(node, i)) visit(*child);
}

/// The place of an attachment. Without a parent it cannot be removed: it is the whole message
/// or signed content.
struct AttachmentPlace {
  Email2* node = nullptr;  ///< Borrowed.
  Email2* parent = nullptr;
  int index = 0;  ///< Among the children of the parent.
};

/// The attachments in the order of attachmentIterate2.
std::vector<AttachmentPlace> placesOfAttachments(Email2& root, LogBase& log);

}  // namespace mailtree
