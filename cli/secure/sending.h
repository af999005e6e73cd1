// cli/secure/sending.h - preparing a message to be signed or encrypted.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/message/input.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree::cli {

/// Loads a message to be signed or encrypted, with its layers. Removes internal fields, Bcc and Resent-Bcc,
/// and adds MIME-Version; hidden recipients stay in the tree. Nothing after reporting an error.
std::optional<Message> loadToSecure(const std::string& path);

/// Encodes parts that are not 7bit with short lines: servers may change them on the way and break a detached
/// signature (RFC 8551, 3.1.3). Signed content is left alone.
void encodeForTransport(Email2& root);

/// `what` with the first error in the log, which names the cause; later errors are consequences.
std::string reasonOf(const LogMemory& log, std::string what);

/// "has expired: it was valid until 2001-12-31T23:59:59Z"; empty for a currently valid certificate.
std::string invalidityOf(const Certificate& certificate);

struct Recipient {
  const char* field;
  std::string address;
};

/// All recipients in To, Cc and Bcc, in this order.
std::vector<Recipient> recipientsOf(const Email2& email);

}  // namespace mailtree::cli
