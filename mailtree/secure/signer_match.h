// secure/signer_match.h - whether the signer is the sender, which a valid signature does not prove.
#pragma once

#include <string>

#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// The address in From. Empty unless there is exactly one field with exactly one address: of several, it is
/// unknown which one a mail client displays.
std::string soleSender(const MimeMessage2& message, LogBase& log);

/// Sets for each signer whether the certificate is issued to the sender.
void matchSender(SecureLayer& layer, const std::string& sender);

}  // namespace mailtree
