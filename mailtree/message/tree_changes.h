// message/tree_changes.h - changes to the tree of a received message before something is added.
#pragma once

#include <unordered_set>
#include <vector>

#include "mailtree/email/tree_walk.h"

namespace mailtree {

/// Visits every wanted node, parents first, and skips everything below an unwanted one. The visitor may
/// remove children of the node it is given.
template <class Visit, class Wanted>
void walkWhere(Email2& root, Visit&& visit, Wanted&& isWanted) {
  walkTree(root, [&](Email2& node) {
    if (!isWanted(node)) return Walk::skipChildren;
    visit(node);
    return Walk::descend;
  });
}

/// Visits every node.
template <class Visit>
void walk(Email2& root, Visit&& visit) {
  walkWhere(root, visit, [](const Email2&) { return true; });
}

/// Skips signed content, whose bytes must not change.
template <class Visit>
void walkUnsigned(Email2& root, Visit&& visit) {
  walkWhere(root, visit, [](const Email2& node) { return !node.m_received; });
}

/// Whether any part of the message is signed. A signature covers content, not the header fields
/// of the message.
bool isSigned(Email2& email);
/// Whether the content of the message is encrypted as a whole.
bool isEncrypted(const Email2& email);

/// Gives the body of a message without a Content-Type its default type, so that it is still
/// found after changes.
void labelUntypedBody(Email2& email, LogBase& log);

/// Makes a leaf the only child of a new enclosure. Its type, charset, disposition and file name move with it.
/// @return the child, borrowed; null when there is none, because an empty text makes no child.
Email2* enclose(Email2& leaf, const char* multipartType, LogBase& log);

/// Moves the content of a single-part message into a multipart/mixed unless it is text: a file, a message
/// or encrypted content.
/// @return the moved part, borrowed; null when nothing was moved.
Email2* moveIntoMixed(Email2& email, LogBase& log);

/// Moves a part below the root into an empty enclosure, which takes the part's place.
/// @return the enclosure, borrowed; null when `part` is the root or `enclosure` is null.
Email2* encloseBelow(Email2& root, Email2& part, EmailPtr enclosure);

/// Replaces and destroys a part below the root; false when `old` is not there.
bool replaceBelow(Email2& root, Email2& old, EmailPtr part);

/// Whether a node is the root or below it.
bool holds(Email2& root, const Email2& node);

using NodeSet = std::unordered_set<const SorvikObject*>;

/// Destroys these nodes, which never include the root.
void removeNodes(Email2& root, const NodeSet& removed);

/// Takes these nodes, which never include the root and of which none holds another, out of the tree.
/// Linear in the tree, however many there are.
std::vector<EmailPtr> extractNodes(Email2& root, const std::vector<Email2*>& nodes);

/// Makes a node an enclosure of this type with a new boundary; its parts stay.
void setEnclosureType(Email2& node, const char* multipartType, LogBase& log);
/// Lets signed content be written anew.
void forgetReceivedBytes(Email2& part);

/// A new empty enclosure of this type with a boundary of its own; null when memory ran out.
EmailPtr newEnclosure(_svEmailCommon& common, const char* multipartType, LogBase& log);

/// Makes the content of the only child that of the node itself, which keeps the fields of a message.
void absorbOnlyChild(Email2& node);

/// After parts were taken out of these enclosures: removes the empty ones, and replaces those left with one
/// part by it. A multipart/mixed with one file stays, so that the file is still one.
void tidyEnclosures(Email2& root, NodeSet changed, LogBase& log);

}  // namespace mailtree
