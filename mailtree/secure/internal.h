// secure/internal.h - shared by signing and enveloping only.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The whole email as written by output, without the fields whose names begin with the
/// prefix (null: all of them).
bool assembleWhole(Email2& email, const char* omitPrefix, StringBuffer& text, LogBase& log);

/// A message whose only content is a CMS blob, under a copy of the header of another message. The caller sets
/// its Content-Type. Null when memory ran out.
EmailPtr createBlobMessage(Email2& source, const char* filename, LogBase& log);

/// Makes a node an attached file with the transfer encoding base64.
void becomeBase64File(Email2& node, const char* filename, LogBase& log);

}  // namespace mailtree
