// cli/secure/sending.h - a message made ready to be signed or encrypted.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/message/input.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree::cli {

/// Loads a message whose bytes are to be signed or encrypted: layers stay on, and fields go that must not be inside,
/// which are the library's own, Bcc and Resent-Bcc; it says that it is MIME. Its hidden recipients stay known to the
/// message. Nothing after a complaint.
std::optional<Message> loadToSecure(const std::string& path);

/// Encodes what is not plain ASCII of short lines, which servers may change on the way and break a detached signature
/// with (RFC 8551, 3.1.3). What is signed already stays as it is.
void encodeForTransport(Email2& root);

/// `what` could not be done, and the first error that says why: later ones only tell what came of it.
std::string reasonOf(const LogMemory& log, std::string what);

/// "has expired: it was valid until 2001-12-31T23:59:59Z"; empty for a certificate that is valid now.
std::string invalidityOf(const Certificate& certificate);

struct Recipient {
  const char* field;
  std::string address;
};

/// Everybody in To, Cc and Bcc, in this order.
std::vector<Recipient> recipientsOf(const Email2& email);

}  // namespace mailtree::cli
