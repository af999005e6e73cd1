#include "cli/views/security_badges.h"

#include <algorithm>
#include <string>

#include "mailtree/secure/layer_forms.h"

namespace mailtree::cli {
namespace {

/// "1" for the message, "1.2" for its second part, the numbers that layers use.
std::vector<std::string> partNumbersOf(const Outline& outline) {
  std::vector<std::string> numbers;
  std::vector<int> children(outline.rows.size(), 0);
  numbers.reserve(outline.rows.size());
  for (const PartRow& row : outline.rows) {
    if (row.parent < 0) {
      numbers.emplace_back("1");
      continue;
    }
    const auto parent = static_cast<std::size_t>(row.parent);
    numbers.push_back(numbers[parent] + '.' + std::to_string(++children[parent]));
  }
  return numbers;
}

class Badges {
 public:
  Badges(const Outline& outline, const Security& security)
      : m_outline(outline), m_security(security), m_numbers(partNumbersOf(outline)) {
    // Parents come before their parts.
    for (std::size_t id = 0; id < outline.rows.size(); ++id) {
      const int parent = outline.rows[id].parent;
      m_isCovered.push_back((parent >= 0 && m_isCovered[static_cast<std::size_t>(parent)]) ||
                            isSignedDirectly(id));
    }
  }

  std::vector<LayerSummary> of(std::size_t id) const {
    std::vector<LayerSummary> badges;
    for (const SecurityLayer& layer : m_security.layers)
      if (layer.part == m_numbers[id]) badges.push_back(summaryOf(layer, m_security));
    if (m_outline.rows[id].isLeaf() && m_security.isSigned() && !m_isCovered[id])
      badges.push_back({false, "not signed"});
    return badges;
  }

 private:
  bool isSignedDirectly(std::size_t id) const {
    return std::ranges::any_of(m_security.layers, [&](const SecurityLayer& layer) {
      return layer.isSigned() && layer.part == m_numbers[id];
    });
  }

  const Outline& m_outline;
  const Security& m_security;
  std::vector<std::string> m_numbers;
  std::vector<bool> m_isCovered;  ///< Whether a signed layer covers the part or its parent.
};

}  // namespace

std::vector<std::vector<LayerSummary>> securityBadgesOf(const Outline& outline, const Security& security) {
  std::vector<std::vector<LayerSummary>> all(outline.rows.size());
  if (security.layers.empty()) return all;
  const Badges badges(outline, security);
  for (std::size_t id = 0; id < all.size(); ++id) all[id] = badges.of(id);
  return all;
}

}  // namespace mailtree::cli
