// Where tests find what they read and run. Compiled once per executable, so that no other object depends on
// the folder the repository is checked out in.
#pragma once

#include <string>

namespace mailtree::places {

std::string testData();         ///< tests/data
std::string samples();          ///< samples/
std::string sourceFolder();     ///< the repository
std::string mailtreeCommand();  ///< the command that was built

/// A folder of real mail of the developer's own, below the one that the environment variable MAILTREE_CORPUS
/// names: "messages" or "keys". Empty when there is none; tests of real mail skip then.
std::string corpus(const char* folder);

}  // namespace mailtree::places
