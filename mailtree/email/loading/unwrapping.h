// email/loading/unwrapping.h - security layers taken off an entity before it becomes a node.
#pragma once

#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/email/Email2.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// Whether the body is a layer: by the media type, or by the name together with the octets where a gateway lost the
/// type. Defined in secure/layer_forms.cpp.
bool isPkcs7Mime(const MimeMessage2& entity);

/// Takes off what can be taken off the entity and below it, and records the outcome in the shared settings of the
/// node that the entity will become.
void unwrapReceived(MimeMessage2& entity, Email2& node, SystemCerts& certs, LogBase& log);

}  // namespace mailtree
