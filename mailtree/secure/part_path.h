// secure/part_path.h - the position of an entity in a message: "1" the message itself, "1.2" its second part.
#pragma once

#include <string>
#include <vector>

#include "mailtree/crypto/SecureLayer.h"

namespace mailtree {

/// The path to an entity, kept on the stack of the walk. The text is made only when needed.
struct PartPath {
  const PartPath* above = nullptr;
  int number = 1;  ///< 0: the content of the entity above, which it replaced.
  int level = 1;   ///< As in the parser: the message itself is at 1.
  Origin origin = kNoOrigin;

  PartPath part(int index, Origin of) const noexcept { return {this, index + 1, level + 1, of}; }
  PartPath content(Origin of) const noexcept { return {this, 0, level, of}; }
  std::string text() const {
    if (!above) return std::to_string(number);
    return number == 0 ? above->text() : above->text() + "." + std::to_string(number);
  }
  /// The entity itself and everything enclosing it.
  std::vector<LayerPlace> places() const {
    std::vector<LayerPlace> places;
    std::string below;
    for (const PartPath* at = this; at; at = at->above) {
      places.push_back({at->origin, below.empty() ? below : "1" + below});
      if (at->number != 0) below.insert(0, "." + std::to_string(at->number));
    }
    return places;
  }
};

}  // namespace mailtree
