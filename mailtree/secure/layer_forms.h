// secure/layer_forms.h - the forms of security layers in a message (RFC 8551, 3; RFC 1847).
#pragma once

#include <string_view>

#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/email/loading/unwrapping.h"  // isPkcs7Mime
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// Whether this is a multipart/signed, with a signature of any protocol.
bool isMultipartSigned(const MimeMessage2& entity) noexcept;
/// Whether it has a CMS signature, by the type of a part or by its own protocol parameter. False for other
/// protocols, such as OpenPGP.
bool hasDetachedSignature(const MimeMessage2& entity) noexcept;
/// The part that holds the signature, never the first; null when there is none.
MimeMessage2* signaturePart(const MimeMessage2& entity) noexcept;
/// Whether there is such a multipart in the tree, this entity included.
bool containsDetachedSignature(const MimeMessage2& entity);

/// Whether a part may be a layer, by its type and its name. It is one when its octets confirm it.
bool mayBeLayer(std::string_view mediaType, std::string_view filename) noexcept;
/// The kind shown by its octets, else the one it claims.
LayerKind kindOf(const MimeMessage2& entity);
/// The kind it claims, for a body that reveals none: by smime-type, then by name, else enveloped.
LayerKind claimedKind(const MimeMessage2& entity);

}  // namespace mailtree
