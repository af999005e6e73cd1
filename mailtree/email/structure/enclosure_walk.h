// email/structure/enclosure_walk.h - the way through a tree by which attached messages and reports are numbered.
//
// A multipart/mixed or multipart/report is scanned: among its children, parts count and only nested enclosures
// are entered. Below any other node every child is walked in turn. The walk keeps its own stack: a tree made by
// hand may be deeper than any call stack.
#pragma once

#include <vector>

#include "mailtree/email/structure/internal.h"

namespace mailtree {

/// A node on the way down.
struct WalkLevel {
  Email2* node;
  bool isEnclosure;  ///< Its children are scanned.
  int next = 0;      ///< Child to look at.
  int count = 0;     ///< For visitors that count afresh in each enclosure.

  /// Nothing more is looked at here.
  void end() noexcept { next = node->m_subParts.getSize(); }
};

/// What a visitor does unless it says otherwise. It also has
///   bool isWanted(const Email2& node)                 is this one of the parts looked for;
///   bool take(Email2& part, WalkLevel* enclosure)     true ends the walk; null: the part was walked to itself.
struct EnclosureVisitor {
  bool isNested(const Email2& child) const { return child.isMultipartMixed(); }
  /// Every node looked at; a nested enclosure once as a child and once more when it is entered.
  void meet(const Email2&) const {}
  void meetDead(WalkLevel&) const {}
  void leaveNested(WalkLevel&) const {}  ///< Back in the enclosure around it.
};

template <class Visitor>
class EnclosureWalk {
 public:
  explicit EnclosureWalk(Visitor& visitor) : m_visitor(visitor) {}

  /// Whether the visitor ended the walk.
  bool run(Email2& root) {
    if (enter(root)) return true;
    while (!m_levels.empty()) {
      WalkLevel& level = m_levels.back();
      if (level.next >= level.node->m_subParts.getSize())
        leave();
      else if (visitChild(level, level.node->m_subParts.template at<Email2>(level.next++)))
        return true;
    }
    return false;
  }

 private:
  bool enter(Email2& node) {
    m_visitor.meet(node);
    if (m_visitor.isWanted(node)) return m_visitor.take(node, nullptr);
    m_levels.push_back({&node, node.isMultipartMixed() || node.isMultipartReport()});
    return false;
  }

  void leave() {
    m_levels.pop_back();
    if (!m_levels.empty() && m_levels.back().isEnclosure) m_visitor.leaveNested(m_levels.back());
  }

  bool visitChild(WalkLevel& level, Email2* child) {
    if (!child) return false;
    if (!child->isLive()) {
      if (level.isEnclosure) m_visitor.meetDead(level);
      return false;
    }
    if (!level.isEnclosure) return enter(*child);
    m_visitor.meet(*child);
    if (m_visitor.isWanted(*child)) return m_visitor.take(*child, &level);
    return m_visitor.isNested(*child) && enter(*child);
  }

  Visitor& m_visitor;
  std::vector<WalkLevel> m_levels;
};

template <class Visitor>
bool walkEnclosures(Email2& root, Visitor& visitor) {
  return EnclosureWalk<Visitor>(visitor).run(root);
}

}  // namespace mailtree
