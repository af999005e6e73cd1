// email/loading/unwrapping.h - unwraps the security layers of an entity before it becomes a node.
#pragma once

#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/email/Email2.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// Whether the body is a security layer: by its media type, or by name and content where a gateway lost the
/// type. Defined in secure/layer_forms.cpp.
bool isPkcs7Mime(const MimeMessage2& entity);

/// Unwraps the layers of the entity and below it, and records the results in the shared settings of its node.
void unwrapReceived(MimeMessage2& entity, Email2& node, SystemCerts& certs, LogBase& log);

}  // namespace mailtree
