// email/loading/unwrapping.h - security layers taken off an entity before it becomes a node.
#pragma once

#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/email/Email2.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// Takes off what can be taken off the entity and below it, and records the outcome in the shared settings of the
/// node that the entity will become.
void unwrapReceived(MimeMessage2& entity, Email2& node, SystemCerts& certs, LogBase& log);

}  // namespace mailtree
