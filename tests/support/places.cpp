#include "tests/support/places.h"

namespace mailtree::places {

std::string testData() { return MAILTREE_SOURCE_DIR "/tests/data"; }
std::string samples() { return MAILTREE_SOURCE_DIR "/samples"; }
std::string sourceFolder() { return MAILTREE_SOURCE_DIR; }
std::string mailtreeCommand() { return MAILTREE_COMMAND; }

}  // namespace mailtree::places
