// email/structure/enclosures.cpp - what kind of multipart a node is, and the search for the nearest enclosure
// of a kind.
//
// Searches keep a list of nodes to look at instead of calling themselves: a tree made by hand may be deeper
// than any stack.
#include <iterator>
#include <vector>

#include "mailtree/email/structure/internal.h"

namespace mailtree {
namespace {

using Predicate = bool (Email2::*)() const;

struct EnclosureRow {
  EnclosureKind kind;
  Predicate matches;
};

constexpr EnclosureRow kEnclosures[] = {
    {EnclosureKind::mixed, &Email2::isMultipartMixed},  // also multipart/x-mixed-replace
    {EnclosureKind::alternative, &Email2::isMultipartAlternative},
    {EnclosureKind::related, &Email2::isMultipartRelated},
    {EnclosureKind::digest, &Email2::isMultipartDigest},
    {EnclosureKind::report, &Email2::isMultipartReport},
};
static_assert(std::size(kEnclosures) == static_cast<std::size_t>(EnclosureKind::report));

/// Children of nodes down to this level are looked at.
constexpr int kDeepestSearchedLevel = 3;

Predicate predicateOf(int kind) noexcept {
  for (const EnclosureRow& row : kEnclosures)
    if (static_cast<int>(row.kind) == kind) return row.matches;
  return nullptr;
}

/// Index of the first child that matches; -1 when none does.
int matchingChild(const Email2& node, Predicate matches) noexcept {
  for (int i = 0; i < node.m_subParts.getSize(); ++i) {
    const Email2* const child = liveChild(node, i);
    if (child && (child->*matches)()) return i;
  }
  return -1;
}

/// A direct child beats anything deeper; beyond that, depth-first in the order of the children.
Email2* searchBelow(Email2& start, Predicate matches, int level, _svParentEmailPtr& place) {
  Email2* found = nullptr;
  walkTree(start, [&](Email2& node, int below) {
    if (level + below > kDeepestSearchedLevel) return Walk::skipChildren;
    const int index = matchingChild(node, matches);
    if (index < 0) return Walk::onward;
    place.m_parent = &node;
    place.m_index = index;
    place.m_level = level + below + 1;
    found = node.m_subParts.at<Email2>(index);
    return Walk::stop;
  });
  return found;
}

}  // namespace

bool Email2::isMultipart() const { return beginsWithNoCase(mediaType(this), "multipart"); }

bool Email2::isMultipartMixed() const {
  return hasType(*this, kMultipartMixed) || hasType(*this, kMultipartReplace);
}

bool Email2::isMultipartAlternative() const { return hasType(*this, kMultipartAlternative); }

bool Email2::isMultipartRelated() const { return hasType(*this, kMultipartRelated); }

bool Email2::isMultipartDigest() const { return hasType(*this, "multipart/digest"); }

bool Email2::isMultipartReport() const { return hasType(*this, "multipart/report"); }

Email2* Email2::findContentType(const char* contentType) const {
  return neverThrow<Email2*>(nullptr, [&] {
    Email2* found = nullptr;
    walkTree(const_cast<Email2&>(*this), [&](Email2& node) {
      if (!node.m_contentType.m_type.equalsIgnoreCase(contentType)) return Walk::onward;
      found = &node;
      return Walk::stop;
    });
    return found;
  });
}

Email2* Email2::findMultipartEnclosure(int kind, int level) const {
  _svParentEmailPtr place;
  return const_cast<Email2*>(this)->findMultipartEnclosureV2(kind, level, place);
}

Email2* Email2::findMultipartEnclosureV2(int kind, int level, _svParentEmailPtr& parent) {
  const Predicate matches = predicateOf(kind);
  if (!isLive() || !matches) return nullptr;
  if ((this->*matches)()) {
    parent.m_level = level;
    return this;
  }
  return neverThrow<Email2*>(nullptr, [&] { return searchBelow(*this, matches, level, parent); });
}

}  // namespace mailtree
