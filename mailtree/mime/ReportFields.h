// mime/ReportFields.h - the fields of reports about messages: what became of one, for whom, and why.
//
// A delivery status is written in blocks: one about the message, then one for each recipient (RFC 3464). A
// disposition notification (RFC 8098) is about one recipient, a feedback report (RFC 5965) about a message and
// those it was for; both are one block. Reports in utf-8 (RFC 6533) are read alike.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

enum class ReportKind { deliveryStatus, dispositionNotification, feedback };

/// What a report of that media type tells of; nothing for any other type.
std::optional<ReportKind> reportKindOf(std::string_view mediaType) noexcept;

/// Name as it was written; value unfolded, runs of blanks as one, decoded to utf-8.
struct ReportField {
  std::string name, value;
};

/// The value of the first field of that name; null when there is none.
const std::string* findReportField(const std::vector<ReportField>& fields, std::string_view name) noexcept;

/// What a report says of one recipient. Each text is empty when it does not say it.
struct ReportRecipient {
  std::string address;              ///< The final one, else the original one, without its type and brackets.
  std::string original;             ///< As which the sender wrote it.
  std::string action;               ///< "failed", "delayed", "displayed", "abuse" ...; lower case.
  std::string status;               ///< Enhanced status code, such as "5.1.1".
  std::string diagnostic;           ///< What the other side said, without the name of its language.
  std::vector<ReportField> fields;  ///< All about this recipient.
};

struct ReportFields {
  std::vector<ReportField> message;  ///< What is about the whole message.
  std::vector<ReportRecipient> recipients;
};

/// Reads the text of a report, line ends of any kind. Blocks run together are told apart by their fields, empty
/// lines may be several, and fields of MIME that got into a report are left out.
ReportFields readReportFields(ReportKind kind, std::string_view text);

}  // namespace mailtree
