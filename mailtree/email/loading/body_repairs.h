// email/loading/body_repairs.h - repairs a received body before it is stored in a node.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// Whether a mailer marked the message as having attachments (X-MS-Has-Attach).
bool hasAttachHeader(const Email2& node);

/// Whether this is unlabelled 8-bit text, whose charset output would have to guess.
bool lacksCharset(const Email2& node, bool hasCharset);

/// Repairs text that output will convert. Attached files keep their bytes and labels.
void repairReceivedText(Email2& node, LogBase& log);

/// Turns a message that is only a file, and marked so, into a multipart/mixed with the file, whose bytes are
/// moved. Leaves any other node alone.
void unpackAttachmentOnly(Email2& node, DataBuffer& body, LogBase& log);

/// Moves the uuencoded files of a body to attachments; the text before them becomes the body, and the node a
/// multipart/mixed. False, with nothing changed, when there are none. (uuencoded.cpp)
bool extractUuencoded(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log);

/// Decodes the body of a node with transfer encoding uuencode, under any of its names; the encoding becomes
/// base64. Leaves a body alone unless it is exactly one complete block. (uuencoded.cpp)
void decodeUuencodedBody(Email2& node, DataBuffer& body, std::string_view charset, LogBase& log);

}  // namespace mailtree
