// secure/layer_forms.h - in what form a security layer stands in a message (RFC 8551, 3; RFC 1847).
#pragma once

#include <string_view>

#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/email/loading/unwrapping.h"  // isPkcs7Mime
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// Whether this is a multipart/signed, whoever's signature it carries.
bool isMultipartSigned(const MimeMessage2& entity) noexcept;
/// Whether it carries a signature in the Cryptographic Message Syntax, by the type of a part or by what it says of
/// itself. One of another protocol, such as OpenPGP, is none.
bool hasDetachedSignature(const MimeMessage2& entity) noexcept;
/// The part that holds the signature, never the first; null when there is none.
MimeMessage2* signaturePart(const MimeMessage2& entity) noexcept;
/// Whether such a multipart stands somewhere below, this entity included.
bool holdsDetachedSignature(const MimeMessage2& entity);

/// Whether a part may be a layer, by its type and its name. It is one when its octets say so too.
bool mayBeLayer(std::string_view mediaType, std::string_view filename) noexcept;
/// The kind it is by its octets, else the one it says it is.
LayerKind kindOf(const MimeMessage2& entity);
/// The kind it says it is, for a body that says nothing: by smime-type, then by name, else enveloped.
LayerKind claimedKind(const MimeMessage2& entity);

}  // namespace mailtree
