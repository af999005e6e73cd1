// secure/received_signature.h - verifies a detached signature over the content as received.
#pragma once

#include <string_view>

#include "mailtree/base/LoadBudget.h"
#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

/// Verifies over the exact bytes received. Mail travels with CRLF (RFC 8551, 3.1.1), but a file stored by a
/// Unix host has LF: if the digest of such content differs from the signed one, the content with CRLF is
/// tried too. Content containing any CR is not changed.
/// @return whether `der` could be read as a signature; the verdicts are in `layer`.
bool verifyReceived(std::string_view der, std::string_view content, SystemCerts& certs, SecureLayer& layer,
                    LoadBudget& budget, LogBase& log);

}  // namespace mailtree
