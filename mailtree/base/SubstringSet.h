// base/SubstringSet.h - which of many substrings occur in a text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace mailtree {

/// Searches for many substrings at once, in time linear in their total length and that of the text (Aho
/// and Corasick).
/// Matches bytes exactly. May throw bad_alloc.
class SubstringSet {
 public:
  SubstringSet() : m_nodes(1) {}

  /// Adds a substring; they are numbered from 0 in this order. An empty one is never found.
  void add(std::string_view wanted);
  /// For each substring, by number, whether it occurs in `text`.
  std::vector<bool> findIn(std::string_view text);

 private:
  struct Node {
    std::uint32_t fallback = 0;  ///< Node of the longest proper suffix that begins a substring.
    std::uint32_t shorter = 0;   ///< Next node among those suffixes that ends a substring.
    bool isEnd = false;
    bool isFound = false;
  };

  static std::uint64_t edge(std::uint32_t node, char byte) noexcept {
    return std::uint64_t{node} << 8 | static_cast<unsigned char>(byte);
  }
  std::uint32_t childOf(std::uint32_t node, char byte) const noexcept;
  std::uint32_t step(std::uint32_t node, char byte) const noexcept;
  void link();

  std::vector<Node> m_nodes;  ///< The first is the root.
  std::unordered_map<std::uint64_t, std::uint32_t> m_edges;
  std::array<std::uint32_t, 256> m_first{};  ///< Edges of the root, which is visited most.
  std::vector<std::uint64_t> m_inOrder;      ///< Edges in the order they were added: parents before children.
  std::vector<std::uint32_t> m_ends;         ///< By number; 0 for an empty text.
};

}  // namespace mailtree
