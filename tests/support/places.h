// Where tests find what they read and run. Compiled once per executable, so that no other object depends on the folder the
// repository is checked out in.
#pragma once

#include <string>

namespace mailtree::places {

std::string testData();         ///< tests/data
std::string samples();          ///< samples/
std::string sourceFolder();     ///< the repository
std::string mailtreeCommand();  ///< the command that was built

}  // namespace mailtree::places
