#include "tests/support/places.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace mailtree::places {

std::string testData() { return MAILTREE_SOURCE_DIR "/tests/data"; }
std::string samples() { return MAILTREE_SOURCE_DIR "/samples"; }
std::string sourceFolder() { return MAILTREE_SOURCE_DIR; }
std::string mailtreeCommand() { return MAILTREE_COMMAND; }

std::string corpus(const char* folder) {
  const char* const root = std::getenv("MAILTREE_CORPUS");
  if (!root || !*root) return {};
  const std::filesystem::path path = std::filesystem::path(root) / folder;
  std::error_code ignored;
  return std::filesystem::is_directory(path, ignored) ? path.string() : std::string();
}

}  // namespace mailtree::places
