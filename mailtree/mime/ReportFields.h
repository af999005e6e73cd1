// mime/ReportFields.h - the fields of reports about messages: what happened to a message, for whom, and why.
//
// A delivery status has blocks: one about the message, then one for each recipient (RFC 3464). A disposition
// notification (RFC 8098) is about one recipient, a feedback report (RFC 5965) about a message and its
// recipients; both have one block. Internationalized reports (RFC 6533) are read the same way.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"

namespace mailtree {

enum class ReportKind { deliveryStatus, dispositionNotification, feedback };

/// The kind of report of a media type; nothing for any other type.
MAILTREE_API std::optional<ReportKind> reportKindOf(std::string_view mediaType) noexcept;

/// Name as written; value unfolded, runs of blanks reduced to one, decoded to utf-8.
struct ReportField {
  std::string name, value;
};

/// The value of the first field of that name; null when absent.
MAILTREE_API const std::string* findReportField(const std::vector<ReportField>& fields,
                                                std::string_view name) noexcept;

/// What a report says about one recipient. Each text is empty when absent.
struct ReportRecipient {
  std::string address;     ///< The final recipient, else the original one, without its type and brackets.
  std::string original;    ///< The address as the sender wrote it.
  std::string action;      ///< "failed", "delayed", "displayed", "abuse" ...; lower case.
  std::string status;      ///< Enhanced status code, such as "5.1.1".
  std::string diagnostic;  ///< The diagnostic of the remote system, without its type.
  std::vector<ReportField> fields;  ///< All fields about this recipient.
};

struct ReportFields {
  std::vector<ReportField> message;  ///< Fields about the whole message.
  std::vector<ReportRecipient> recipients;
};

/// Reads the text of a report, with any line breaks. Recognizes blocks that run together by their fields,
/// allows several empty lines between blocks, and skips MIME fields that got into a report.
MAILTREE_API ReportFields readReportFields(ReportKind kind, std::string_view text);

}  // namespace mailtree
