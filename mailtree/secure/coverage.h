// secure/coverage.h - what a good signature does not say by itself: whether the signer is the sender.
#pragma once

#include <string>

#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

/// The address in From. Empty unless there is exactly one field with exactly one address in it: of several nobody
/// knows which one a reader is shown.
std::string soleSender(const MimeMessage2& message, LogBase& log);

/// Says of each signer whether the certificate is issued to the sender.
void matchSender(SecureLayer& layer, const std::string& sender);

}  // namespace mailtree
