// tests/support/node_path.h - places in an email tree as text: "/" is the root, "/1/0" a grandchild.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The node at a path; null when there is none.
Email2* nodeAt(Email2& root, std::string_view path);

/// Path of a node; "none" for null, "elsewhere" for a node outside the tree.
std::string pathOf(const Email2& root, const Email2* node);

/// Paths of the nodes in a list, separated by blanks.
std::string pathsOf(const Email2& root, const ExtPtrArray& nodes);

/// A chain of that many multiparts of one type below each other, with a leaf at its end.
EmailPtr buildChain(int depth, const char* multipartType, const char* leafType);

}  // namespace mailtree
