// message/Report.h - a bounce, a receipt or a complaint about another message.
#pragma once

#include <string>
#include <vector>

#include "mailtree/mime/ReportFields.h"

namespace mailtree {

/// A delivery status (RFC 3464), a disposition notification (RFC 8098) or a feedback report (RFC 5965).
struct Report {
  ReportKind kind{};
  std::vector<ReportField> fields;          ///< About the message as a whole.
  std::vector<ReportRecipient> recipients;  ///< What happened, for whom and why.
  std::string original;                     ///< The reported message, or its header; empty when missing.
  std::string messageId, subject;           ///< Of the reported message, as far as known.
  std::string text;                         ///< What it says to people.
};

}  // namespace mailtree
