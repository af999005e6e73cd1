// message/securing.h - what signing and encrypting need to know: digests, ciphers, certificates, recipients.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/crypto/Certificate.h"
#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/output.h"

namespace mailtree {

/// "'md5': must be sha256, sha384 or sha512"; empty for a digest to sign with. Case and dashes do not matter.
std::string digestProblem(std::string_view name);
/// "'rc2': must be one of aes-128-cbc ..."; empty for a cipher to encrypt with.
std::string cipherProblem(std::string_view name);

/// "has expired: it was valid until 2001-12-31T23:59:59Z"; empty for a currently valid certificate.
std::string invalidityOf(const Certificate& certificate);

/// All recipients in To, Cc and Bcc, in this order; of a resent message those of the latest Resent- fields.
std::vector<Recipient> recipientsOf(const Email2& email);
/// Those that nothing can be encrypted for, each once.
std::vector<Recipient> withoutCertificate(const std::vector<Recipient>& recipients, SystemCerts& certs);

}  // namespace mailtree
