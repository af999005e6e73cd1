// secure/internal.h - what signing and enveloping share and nobody else sees.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The whole email as output writes it, without the fields whose names begin with the prefix (null: all of them).
bool assembleWhole(Email2& email, const char* omitPrefix, StringBuffer& text, LogBase& log);

/// A message that carries a blob in the Cryptographic Message Syntax as its only content, under a copy of the header of
/// another. Its Content-Type is the caller's to set. Null when memory ran out.
EmailPtr createBlobMessage(Email2& source, const char* filename, LogBase& log);

/// Makes a node an attached file with base64 for its transfer encoding.
void becomeBase64File(Email2& node, const char* filename, LogBase& log);

}  // namespace mailtree
