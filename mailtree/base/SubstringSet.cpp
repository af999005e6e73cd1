#include "mailtree/base/SubstringSet.h"

#include <algorithm>

namespace mailtree {

void SubstringSet::add(std::string_view wanted) {
  std::uint32_t node = 0;
  for (const char byte : wanted) {
    const auto [at, isNew] =
        m_edges.try_emplace(edge(node, byte), static_cast<std::uint32_t>(m_nodes.size()));
    if (isNew) {
      m_nodes.emplace_back();
      m_inOrder.push_back(at->first);
      if (node == 0) m_first[static_cast<unsigned char>(byte)] = at->second;
    }
    node = at->second;
  }
  m_nodes[node].isEnd = true;
  m_ends.push_back(node);
}

std::uint32_t SubstringSet::childOf(std::uint32_t node, char byte) const noexcept {
  if (node == 0) return m_first[static_cast<unsigned char>(byte)];
  const auto found = m_edges.find(edge(node, byte));
  return found == m_edges.end() ? 0 : found->second;
}

std::uint32_t SubstringSet::step(std::uint32_t node, char byte) const noexcept {
  for (;; node = m_nodes[node].fallback)
    if (const std::uint32_t child = childOf(node, byte); child != 0 || node == 0) return child;
}

/// By depth, because a fallback is always shorter than the nodes that use it.
void SubstringSet::link() {
  std::vector<std::uint32_t> depth(m_nodes.size());
  for (const std::uint64_t key : m_inOrder) depth[m_edges.at(key)] = depth[key >> 8] + 1;
  std::ranges::stable_sort(m_inOrder, {}, [&](std::uint64_t key) { return depth[m_edges.at(key)]; });
  for (const std::uint64_t key : m_inOrder) {
    const auto parent = static_cast<std::uint32_t>(key >> 8);
    Node& node = m_nodes[m_edges.at(key)];
    node.fallback = parent == 0 ? 0 : step(m_nodes[parent].fallback, static_cast<char>(key & 0xFF));
    const Node& next = m_nodes[node.fallback];
    node.shorter = next.isEnd ? node.fallback : next.shorter;
  }
}

std::vector<bool> SubstringSet::findIn(std::string_view text) {
  link();
  for (Node& node : m_nodes) node.isFound = false;
  std::uint32_t at = 0;
  for (const char byte : text) {
    at = step(at, byte);
    // Texts found before were followed to their end.
    for (std::uint32_t found = at; found != 0 && !m_nodes[found].isFound; found = m_nodes[found].shorter)
      m_nodes[found].isFound = true;
  }
  std::vector<bool> result(m_ends.size());
  for (std::size_t i = 0; i < m_ends.size(); ++i) result[i] = m_ends[i] != 0 && m_nodes[m_ends[i]].isFound;
  return result;
}

}  // namespace mailtree
