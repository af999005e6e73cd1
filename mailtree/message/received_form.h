// message/received_form.h - a message byte for byte as it was received.
#pragma once

#include <optional>
#include <string>

#include "mailtree/message/internal.h"

namespace mailtree {

/// A message that has not changed since it was read, as it came, with line breaks as they are sent: a file
/// with Unix line breaks gets CRLF. Nothing when something changed, or when `options` need another form.
std::optional<std::string> receivedForm(const MessageState& state, const WriteOptions& options);

/// The message with everything in it, as received or else as it would be written: to be sent as it is.
Result<std::string> wholeMessage(const Message& message);

}  // namespace mailtree
