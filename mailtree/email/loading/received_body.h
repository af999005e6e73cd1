// email/loading/received_body.h - a received body put right before it becomes a node's.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// Whether a mailer marked the message as one with attachments (X-MS-Has-Attach).
bool hasAttachMark(const Email2& node);

/// Whether this is 8-bit text that nobody labelled and output would have to guess at.
bool lacksCharset(const Email2& node, bool hasCharset);

/// Repairs of text that output will convert. Attached files keep their bytes: their labels are their own.
void mendReceivedText(Email2& node, LogBase& log);

/// Makes a node whose message is a file and nothing else, and says so, a multipart/mixed with the file in it. The
/// body is moved there. Nothing happens to any other node.
void unpackAttachmentOnly(Email2& node, DataBuffer& body, LogBase& log);

/// Takes the uuencoded files out of a body: they become attachments, the text before them the body, and the node
/// a multipart/mixed. False, with nothing changed, when there is none. (uuencoded.cpp)
bool takeUuencoded(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log);

/// Decodes the body of a node whose transfer encoding is uuencode, by any of its names; the encoding becomes base64.
/// A body that holds anything else than one block that decodes to its end stays as it is. (uuencoded.cpp)
void decodeUuencodedBody(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log);

}  // namespace mailtree
