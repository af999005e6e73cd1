// email/bodies/send_cost.cpp - the cost of sending a message, by its size.

#include <cstdint>
#include <vector>

#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

constexpr std::uint32_t kSigningCost = 2'000;

/// Adds the cost of signing and encrypting, which every level applies to everything below it.
/// Deliberate: 32-bit arithmetic that wraps.
std::uint32_t withSecurity(const _svEmailCommon& common, std::uint32_t cost) noexcept {
  if (common.m_sendSigned) cost += kSigningCost;
  return common.m_sendEncrypted ? cost * 100 / 80 : cost;
}

std::uint32_t ownCost(const Email2& node) noexcept {
  return static_cast<std::uint32_t>(node.m_body.getSize()) + node.m_header.getSendCost();
}

bool hasCost(const Email2* node) noexcept { return node && node->isLive() && node->m_common; }

/// A node on the path from the root, with the cost of what was visited below it.
struct Open {
  const Email2* node;
  std::uint32_t cost;
  int next = 0;
};

std::uint32_t costOf(const Email2& root) {
  std::vector<Open> open{{&root, ownCost(root)}};
  for (;;) {
    Open& top = open.back();
    if (top.next < top.node->m_subParts.getSize()) {
      const Email2* const child = top.node->m_subParts.at<Email2>(top.next++);
      if (hasCost(child)) open.push_back({child, ownCost(*child)});
      continue;
    }
    const std::uint32_t cost = withSecurity(*top.node->m_common, top.cost);
    open.pop_back();
    if (open.empty()) return cost;
    open.back().cost += cost;
  }
}

}  // namespace

unsigned Email2::getSendCost() const {
  return hasCost(this) ? neverThrow(0U, [&] { return costOf(*this); }) : 0;
}

}  // namespace mailtree
