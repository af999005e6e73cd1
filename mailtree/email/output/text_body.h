// email/output/text_body.h - the written body of a text part, converted from utf-8 to the email's charset.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The body written for a node.
struct OutgoingBody {
  DataBuffer converted;  ///< The body in another charset; the stored one never changes.
  bool isConverted = false;
  int headerCodePage = 0;  ///< Code page of the written header.
  bool normalizeLineEnds = false;

  const DataBuffer& bytesOf(const Email2& node) const noexcept {
    return isConverted ? converted : node.m_body;
  }
};

/// The stored body, for anything except text.
inline OutgoingBody storedBody(const Email2& node) noexcept {
  OutgoingBody body;
  body.headerCodePage = node.emailCodePage();
  return body;
}

/// Converts a text leaf for output. Text that does not fit the email's charset is written as utf-8:
/// the node's Content-Type then says so, and a 7bit or missing transfer encoding becomes
/// quoted-printable if needed.
OutgoingBody outgoingText(Email2& node, LogBase& log);

}  // namespace mailtree
