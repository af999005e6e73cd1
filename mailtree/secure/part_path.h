// secure/part_path.h - where an entity stands in a message: "1" the message itself, "1.2" its second part.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// The way down to an entity, kept on the stack of the walk. The text is made only for those that need it.
struct PartPath {
  const PartPath* above = nullptr;
  int number = 1;
  int level = 1;  ///< As the parser counts: the message itself is at 1.

  PartPath part(int index) const noexcept { return {this, index + 1, level + 1}; }
  std::string text() const {
    return above ? above->text() + "." + std::to_string(number) : std::to_string(number);
  }
};

/// Whether a part is another one or stands below it.
inline bool isWithin(std::string_view part, std::string_view other) noexcept {
  if (!part.starts_with(other)) return false;
  return part.size() == other.size() || part[other.size()] == '.';
}

}  // namespace mailtree
