// email/structure/related.cpp - the items that an HTML body refers to, usually images: finding them, adding
// them, and moving those that were sent as attachments.
#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include "mailtree/base/SubstringSet.h"
#include "mailtree/email/structure/internal.h"

namespace mailtree {
namespace {

Email2* findEnclosure(const Email2& node, EnclosureKind kind) {
  return node.findMultipartEnclosure(static_cast<int>(kind), 0);
}

Email2* findRelated(const Email2& node) { return findEnclosure(node, EnclosureKind::related); }

EmailPtr newRelatedEnclosure(const Email2& node) {
  LogNull quiet;
  return EmailPtr(node.m_common ? Email2::createEmptyMultipartRelated(*node.m_common, quiet) : nullptr);
}

/// Moves the first text/html child of an alternative to the enclosure that will replace it.
void moveHtml(Email2& alternative, Email2& enclosure) {
  for (int i = 0; i < alternative.m_subParts.getSize(); ++i) {
    const Email2* const child = liveChild(alternative, i);
    if (!child || !hasType(*child, "text/html")) continue;
    enclosure.insertSubPartAtIndex(alternative.extractSubpartByIndex(i), -1);
    return;
  }
}

/// Whether a child of a multipart/mixed is a body and no attachment.
bool isBodyOfMixed(Email2& child, LogBase& log) {
  return child.isLive() && !child.isMultipart() && !child.isEmailAttachment(/*inMixed=*/true, log);
}

/// Moves the bodies of a multipart/mixed. Rebuilds the list of children, which takes linear time.
void moveBodies(Email2& mixed, Email2& enclosure, LogBase& log) {
  std::vector<Email2*> children;
  children.reserve(static_cast<std::size_t>(mixed.m_subParts.getSize()));
  while (mixed.m_subParts.getSize() > 0)
    children.push_back(mixed.extractSubpartByIndex(mixed.m_subParts.getSize() - 1));
  std::reverse(children.begin(), children.end());
  for (Email2* const child : children) {
    Email2& place = child && isBodyOfMixed(*child, log) ? enclosure : mixed;
    place.m_subParts.appendPtr(child);
  }
}

// Places for a new item. Each returns false when it did not take the item.

bool placeInAlternative(Email2& alternative, Email2& item) {
  EmailPtr enclosure = newRelatedEnclosure(alternative);
  if (!enclosure) return false;
  moveHtml(alternative, *enclosure);
  enclosure->insertSubPartAtIndex(&item, -1);
  alternative.insertSubPartAtIndex(enclosure.release(), -1);
  return true;
}

bool placeAroundContent(Email2& node, Email2& item, LogBase& log) {
  node.convertToMultipartX("multipart/related", log);
  if (!node.isMultipartRelated()) return false;
  node.insertSubPartAtIndex(&item, -1);
  return true;
}

bool placeInMixed(Email2& mixed, Email2& item, LogBase& log) {
  EmailPtr enclosure = newRelatedEnclosure(mixed);
  if (!enclosure) return false;
  moveBodies(mixed, *enclosure, log);
  enclosure->insertSubPartAtIndex(&item, -1);
  mixed.insertSubPartAtIndex(enclosure.release(), 0);
  return true;
}

bool place(Email2& node, Email2& item, LogBase& log) {
  moveUnsplitBytesToPart(node, log);
  if (Email2* const related = findRelated(node)) {
    moveUnsplitBytesToPart(*related, log);
    related->insertSubPartAtIndex(&item, -1);
    return true;
  }
  Email2* const alternative = findEnclosure(node, EnclosureKind::alternative);
  if (alternative) moveUnsplitBytesToPart(*alternative, log);
  if (alternative && node.m_common) return placeInAlternative(*alternative, item);
  return node.isMultipartMixed() ? placeInMixed(node, item, log) : placeAroundContent(node, item, log);
}

/// The Content-ID of a part without angle brackets; empty when there is none.
StringBuffer bareContentId(const Email2& part, LogBase& log) {
  StringBuffer id;
  part.getHeaderFieldUtf8("Content-ID", id, log);
  std::string_view bare = trim(id);
  if (bare.starts_with('<')) bare.remove_prefix(1);
  if (bare.ends_with('>')) bare.remove_suffix(1);
  return copyOf(bare);
}

/// For each attachment, whether the HTML contains its Content-ID, compared exactly, in one search. An empty
/// Content-ID never matches.
std::vector<bool> referencedIn(const Email2& html, const std::vector<AttachmentPlace>& attachments,
                               LogBase& log) {
  SubstringSet ids;
  for (const AttachmentPlace& attachment : attachments) ids.add(bareContentId(*attachment.node, log));
  return ids.findIn(html.m_body.view());
}

/// Removes an attachment from its parent; null when it has no parent, or when a multipart/alternative would
/// become empty.
EmailPtr detach(const AttachmentPlace& at) {
  if (!at.parent || (at.parent->isMultipartAlternative() && at.parent->getNumParts() < 2)) return EmailPtr();
  return EmailPtr(at.parent->extractSubpartByIndex(at.index));
}

/// Removes all items before placing the first, because an item keeps its disposition and would be counted as
/// an attachment in its new place. Goes from last to first, so that earlier indexes stay valid.
void moveReferencedAttachments(Email2& root, const Email2& html,
                               const std::vector<AttachmentPlace>& attachments, LogBase& log) {
  const std::vector<bool> isReferenced = referencedIn(html, attachments, log);
  std::vector<EmailPtr> items;
  for (std::size_t i = attachments.size(); i-- > 0;)
    if (attachments[i].node != &html && isReferenced[i])
      if (EmailPtr item = detach(attachments[i])) items.push_back(std::move(item));
  Email2* related = nullptr;  // searched once, because each search visits all parts
  for (EmailPtr& item : items) {
    if (related)
      related->insertSubPartAtIndex(item.get(), -1);
    else if (place(root, *item, log))
      related = findRelated(root);
    else
      root.insertSubPartAtIndex(item.get(), -1);
    std::ignore = item.release();  // the tree owns it again
  }
}

/// Turns a multipart/mixed whose only child is an alternative into that alternative.
/// Deliberate: only the type changes; the boundary is kept.
void collapseToAlternative(Email2& mixed, LogBase& log) {
  Email2* const only = mixed.m_subParts.getSize() == 1 ? liveChild(mixed, 0) : nullptr;
  if (!mixed.isMultipartMixed() || !only || !only->isMultipartAlternative()) return;
  const EmailPtr alternative(mixed.extractSubpartByIndex(0));
  if (!alternative->m_subParts.transferPtrs(mixed.m_subParts)) return;
  mixed.m_contentType.m_type.setString(kMultipartAlternative);
  mixed.refreshContentTypeHeader(log);
}

}  // namespace

int Email2::getNumRelatedItems(LogBase& log) {
  Email2* const related = findRelated(*this);
  return related ? related->m_subParts.getSize() - related->firstPartNotRelatedItem(log) : 0;
}

int Email2::firstPartNotRelatedItem(LogBase&) {
  // Deliberate: case-sensitive; types are lower case after loading.
  return isLive() && mediaType(m_subParts.at<Email2>(0)) == "text/html" ? 1 : 0;
}

Email2* Email2::getRelatedItem(int index, LogBase& log) {
  Email2* const related = findRelated(*this);
  if (!related || index < 0 || index >= related->m_subParts.getSize()) return nullptr;
  return related->m_subParts.at<Email2>(related->firstPartNotRelatedItem(log) + index);
}

bool Email2::setRelatedHeader(int index, const char* name, const char* value, LogBase& log) {
  if (!isLive()) return false;
  Email2* const item = getRelatedItem(index, log);
  if (!item) {
    log.logError("Failed to find related sub-part.");
    return false;
  }
  item->setHeaderField_a(name, value, /*asGiven=*/false, log);
  return true;
}

void Email2::addRelatedContent(Email2* item, LogBase& log) {
  if (!item || !isLive()) return;
  neverThrow(false, [&] { return place(*this, *item, log); });
}

void Email2::dropRelatedItem(int index) {
  Email2* const related = findRelated(*this);
  if (!related || index < 0) return;
  int before = -1;  // other than in getRelatedItem(), the first subpart never counts
  for (int i = 0; i < related->m_subParts.getSize(); ++i) {
    const Email2* const child = related->m_subParts.at<Email2>(i);
    if (!child) continue;
    if (!child->isLive()) return;  // Deliberate: a damaged child ends the search.
    if (before++ != index) continue;
    const EmailPtr dropped(related->extractSubpartByIndex(i));
    return;
  }
}

void Email2::dropRelatedItems() {
  Email2* const related = findRelated(*this);
  if (!related) return;
  Email2* const first = related->extractSubpartByIndex(0);
  related->removeAllSubparts();
  related->insertSubPartAtIndex(first, 0);
}

void Email2::fixRelated(LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "fixRelated");
  neverThrow(false, [&] {
    const Email2* const html = findHtmlPart();
    if (!html) return false;
    const std::vector<AttachmentPlace> attachments = placesOfAttachments(*this, log);
    if (attachments.empty()) return false;
    moveReferencedAttachments(*this, *html, attachments, log);
    collapseToAlternative(*this, log);
    return true;
  });
}

}  // namespace mailtree
