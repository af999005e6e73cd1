// cli/message/structure.h - what has to happen to the tree of a received message before something is put into it.
#pragma once

#include <unordered_set>

#include "mailtree/email/tree_walk.h"

namespace mailtree::cli {

/// Visits, parents first, every node that is wanted, and looks at nothing below one that is not. The visitor may take
/// children away from the node that it is given.
template <class Visit, class Wanted>
void walkWhere(Email2& root, Visit&& visit, Wanted&& isWanted) {
  walkTree(root, [&](Email2& node) {
    if (!isWanted(node)) return Walk::skipChildren;
    visit(node);
    return Walk::onward;
  });
}

/// Visits every node.
template <class Visit>
void walk(Email2& root, Visit&& visit) {
  walkWhere(root, visit, [](const Email2&) { return true; });
}

/// Leaves out signed content, which keeps the bytes that it came with, whatever is in them.
template <class Visit>
void walkUnsigned(Email2& root, Visit&& visit) {
  walkWhere(root, visit, [](const Email2& node) { return !node.m_received; });
}

/// Whether anything in the message is signed. A signature covers the content, not the fields of the message.
bool isSigned(Email2& email);
/// Whether the content of the message is encrypted as a whole.
bool isEncrypted(const Email2& email);

/// Labels the text of a message that says nothing of types, so that it still is found once the message says more.
void labelUntypedBody(Email2& email, LogBase& log);

/// Makes a leaf the only child of a new enclosure. What belongs to the content goes with it: type, charset,
/// disposition and file name.
/// @return the child, borrowed; null when there is none, as an empty text leaves nothing behind.
Email2* enclose(Email2& leaf, const char* multipartType, LogBase& log);

/// Moves into a multipart/mixed what a message of one part is when that is no text: a file, a message, or encrypted
/// content.
/// @return the part moved, borrowed; null when there was nothing to move.
Email2* makeRoom(Email2& email, LogBase& log);

/// Puts a part below the root into an enclosure, empty until now, at its place.
/// @return the enclosure, borrowed; null when `part` is the root or there is no enclosure.
Email2* encloseBelow(Email2& root, Email2& part, EmailPtr enclosure);

/// Puts a part in the place of one below the root, which is destroyed; false when that is not there.
bool replaceBelow(Email2& root, Email2& old, EmailPtr part);

/// Whether a node is somewhere below, or is, the root.
bool holds(Email2& root, const Email2& node);

/// Destroys these nodes; the root is never one of them.
void removeNodes(Email2& root, const std::unordered_set<const SorvikObject*>& doomed);

}  // namespace mailtree::cli
