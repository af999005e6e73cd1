#include "mailtree/email/loading/layer_places.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace mailtree {
namespace {

/// Maximum number of leaves listed per layer.
constexpr std::size_t kMostListed = 1000;

/// Whether a part is the other one or below it.
bool isWithin(std::string_view part, std::string_view other) noexcept {
  return part.starts_with(other) && (part.size() == other.size() || part[other.size()] == '.');
}

/// Part numbers: "1" is the message, "1.2" its second part.
class PartNumbers {
 public:
  explicit PartNumbers(const Email2& root) {
    std::vector<std::pair<const Email2*, std::string>> open;
    open.emplace_back(&root, SecureLayer::kWholeMessage);
    while (!open.empty()) {
      const auto [node, number] = std::move(open.back());
      open.pop_back();
      if (node->m_origin != kNoOrigin) m_byOrigin.emplace(node->m_origin, number);
      if (node->getNumParts() == 0) m_leaves.push_back(number);
      for (int i = node->getNumParts(); i-- > 0;)
        if (const Email2* const part = node->getPartConst(i))
          open.emplace_back(part, number + "." + std::to_string(i + 1));
    }
  }

  std::string of(const SecureLayer& layer) const {
    for (const LayerPlace& place : layer.places)
      if (const auto found = m_byOrigin.find(place.origin); found != m_byOrigin.end())
        return place.inside.empty() ? found->second : found->second + "/" + place.inside;
    return {};  // covers no part
  }

  std::vector<std::string> uncoveredLeaves(std::string_view part) const {
    std::vector<std::string> leaves;
    for (const std::string& leaf : m_leaves) {
      if (leaves.size() == kMostListed) break;
      if (!isWithin(leaf, part)) leaves.push_back(leaf);
    }
    return leaves;
  }

 private:
  std::unordered_map<Origin, std::string> m_byOrigin;
  std::vector<std::string> m_leaves;
};

}  // namespace

void placeLayers(const Email2& root, std::span<SecureLayer> layers, std::span<InnerField> fields,
                 std::size_t first) {
  const std::span<SecureLayer> own = layers.subspan(first);
  if (own.empty()) return;
  for (SecureLayer& layer : own) layer.part.clear();  // no stale value remains if memory runs out
  const PartNumbers numbers(root);
  for (SecureLayer& layer : own) {
    layer.part = numbers.of(layer);
    layer.uncovered.clear();
    if (layer.isSigned() && layer.part != SecureLayer::kWholeMessage)
      layer.uncovered = numbers.uncoveredLeaves(layer.part);
  }
  for (InnerField& field : fields)
    if (field.layer >= first) field.part = layers[field.layer].part;
}

}  // namespace mailtree
