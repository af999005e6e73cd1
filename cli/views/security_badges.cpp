#include "cli/views/security_badges.h"

#include <algorithm>
#include <string>

#include "mailtree/secure/layer_forms.h"

namespace mailtree::cli {
namespace {

/// "1" for the message, "1.2" for its second part: as layers name what they cover.
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
  Badges(const Outline& outline, const Examined& examined)
      : m_outline(outline), m_examined(examined), m_numbers(partNumbersOf(outline)) {}

  std::vector<LayerSummary> of(std::size_t id) const {
    std::vector<LayerSummary> badges;
    for (const SecureLayer& layer : m_examined.layers)
      if (layer.part == m_numbers[id]) badges.push_back(summaryOf(layer, m_examined));
    if (m_outline.rows[id].isLeaf() && m_examined.isSigned() && !isCovered(id))
      badges.push_back({false, "not signed"});
    return badges;
  }

 private:
  bool isSignedItself(std::size_t id) const {
    return std::ranges::any_of(m_examined.layers, [&](const SecureLayer& layer) {
      return layer.isSigned() && layer.part == m_numbers[id];
    });
  }

  /// Whether a layer covers the part or one that it stands in.
  bool isCovered(std::size_t id) const {
    for (int at = static_cast<int>(id); at >= 0; at = m_outline.row(at).parent)
      if (isSignedItself(static_cast<std::size_t>(at))) return true;
    return false;
  }

  const Outline& m_outline;
  const Examined& m_examined;
  std::vector<std::string> m_numbers;
};

}  // namespace

std::vector<std::vector<LayerSummary>> securityBadgesOf(const Outline& outline, const Examined& examined) {
  std::vector<std::vector<LayerSummary>> all(outline.rows.size());
  if (examined.layers.empty()) return all;
  const Badges badges(outline, examined);
  for (std::size_t id = 0; id < all.size(); ++id) all[id] = badges.of(id);
  return all;
}

}  // namespace mailtree::cli
