// message/content.h - what all changes of the content begin and end with.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/internal.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree {

/// Before a change of the content: refuses encrypted content, gives up the signature of the whole message.
/// @param size  how many bytes the change will allocate at most, if that is known: memory for many must be
///              there before anything changes, because a change that has begun cannot be undone.
Result<void> beginContent(MessageState& state, std::size_t size = 0);
/// After it: a message with content has a MIME-Version, or its Content- fields do not count (RFC 2045, 4).
void endContent(MessageState& state);

/// Gives up the signatures over these rows, which are about to change: the content takes the place of the
/// multipart/signed. Numbers the parts anew when there were any.
void dropSignaturesOver(MessageState& state, const std::vector<int>& rows);

/// Whether the part holds a detached signature.
bool isSignature(const Email2& part);

/// A leaf of the tree after dropSignaturesOver(): the root has taken in an only child.
inline Email2& afterDropping(Email2& root, Email2& leaf) { return root.getNumParts() == 0 ? root : leaf; }

/// Replaces the text of a part, moved from `text`, and keeps its type and whether its lines flow.
bool rewriteText(Email2& root, Email2& leaf, DataBuffer& text);

/// Text to be set: valid utf-8 without NUL; badValue for any other.
Result<void> checkText(std::string_view text, std::string_view where);
/// With CRLF as line breaks.
std::string withCrlf(std::string_view text);

}  // namespace mailtree
