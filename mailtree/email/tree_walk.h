// email/tree_walk.h - the walk through a tree: depth-first, parents before children.
#pragma once

#include <type_traits>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// How a walk continues after a node.
enum class Walk { descend, skipChildren, stop };

/// Visits the live nodes of a subtree without recursion: a tree made by hand may be deeper than the call
/// stack. A dead node is skipped with everything below it. The visitor takes the node, and its level if it
/// wants that (0 for the root). It may change the children of that node, but not those of nodes above it.
/// @return Walk::stop when the visitor stopped the walk, else Walk::descend.
template <class Node, class Visit>
Walk walkTree(Node& root, Visit&& visit) {
  struct Open {
    Node* node;
    int level;
  };
  std::vector<Open> open{{&root, 0}};
  while (!open.empty()) {
    const Open at = open.back();
    open.pop_back();
    if (!at.node->isLive()) continue;
    Walk next;
    if constexpr (std::is_invocable_v<Visit, Node&, int>)
      next = visit(*at.node, at.level);
    else
      next = visit(*at.node);
    if (next == Walk::stop) return Walk::stop;
    if (next == Walk::skipChildren) continue;
    for (int i = at.node->m_subParts.getSize() - 1; i >= 0; --i)
      if (Node* child = at.node->m_subParts.template at<Email2>(i)) open.push_back({child, at.level + 1});
  }
  return Walk::descend;
}

}  // namespace mailtree
