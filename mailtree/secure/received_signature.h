// secure/received_signature.h - a detached signature verified over a content as it was received.
#pragma once

#include <string_view>

#include "mailtree/base/LoadBudget.h"
#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

/// Verifies over the very bytes received. Mail travels with CRLF (RFC 8551, 3.1.1), and a file that a Unix host
/// stored has LF instead: where the digest of such a content is not the signed one, that of the content as it
/// travelled is tried too. A content with any CR in it is taken as it stands.
/// @return whether it could be read as a signature; the verdicts are in `layer`.
bool verifyReceived(std::string_view der, std::string_view content, SystemCerts& certs, SecureLayer& layer,
                    LoadBudget& budget, LogBase& log);

}  // namespace mailtree
