// email/structure/enclosure_walk.h - the walk that numbers attached messages and reports.
//
// A multipart/mixed or multipart/report is scanned: its children are tested, and only nested enclosures are
// entered. Below any other node every child is walked. The walk uses its own stack, because a tree built by
// the caller may be deeper than any call stack.
#pragma once

#include <vector>

#include "mailtree/email/structure/internal.h"

namespace mailtree {

/// A node on the path from the root.
struct WalkLevel {
  Email2* node;
  bool isEnclosure;  ///< Its children are scanned.
  int next = 0;      ///< Index of the next child.
  int count = 0;     ///< For visitors that count per enclosure.

  /// Skips the remaining children.
  void end() noexcept { next = node->m_subParts.getSize(); }
};

/// Defaults for visitors. A visitor also defines
///   bool isWanted(const Email2& node)                 whether the node is one of the parts searched for;
///   bool take(Email2& part, WalkLevel* enclosure)     handles it, true ends the walk; null
/// outside an enclosure.
struct EnclosureVisitor {
  bool isNested(const Email2& child) const { return child.isMultipartMixed(); }
  /// Called for every node; for a nested enclosure as a child and again when it is entered.
  void visit(const Email2&) const {}
  void visitDead(WalkLevel&) const {}
  void leaveNested(WalkLevel&) const {}  ///< Called after a nested enclosure.
};

template <class Visitor>
class EnclosureWalk {
 public:
  explicit EnclosureWalk(Visitor& visitor) : m_visitor(visitor) {}

  /// Returns whether the visitor ended the walk.
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
    m_visitor.visit(node);
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
      if (level.isEnclosure) m_visitor.visitDead(level);
      return false;
    }
    if (!level.isEnclosure) return enter(*child);
    m_visitor.visit(*child);
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
