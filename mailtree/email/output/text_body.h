// email/output/text_body.h - the body of a text part as it leaves: utf-8 brought to the charset of the email.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// What is written for a node.
struct OutgoingBody {
  DataBuffer converted;  ///< The body in another charset; the node's own is never changed.
  bool isConverted = false;
  int headerCodePage = 0;  ///< In which the header is written.
  bool normalizeLineEnds = false;

  const DataBuffer& bytesOf(const Email2& node) const noexcept {
    return isConverted ? converted : node.m_body;
  }
};

/// The body as it is stored, for everything that is no text.
inline OutgoingBody storedBody(const Email2& node) noexcept {
  OutgoingBody body;
  body.headerCodePage = node.emailCodePage();
  return body;
}

/// Converts a text leaf for output. A text that the email's charset cannot carry goes as utf-8: the node's
/// Content-Type then says so, and a 7bit or missing transfer encoding becomes quoted-printable where the
/// bytes need one.
OutgoingBody outgoingText(Email2& node, LogBase& log);

}  // namespace mailtree
