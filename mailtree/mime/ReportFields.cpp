#include "mailtree/mime/ReportFields.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {
namespace {

struct KindRow {
  std::string_view type;
  ReportKind kind;
};
constexpr KindRow kKinds[] = {
    {"message/delivery-status", ReportKind::deliveryStatus},
    {"message/global-delivery-status", ReportKind::deliveryStatus},
    {"message/disposition-notification", ReportKind::dispositionNotification},
    {"message/global-disposition-notification", ReportKind::dispositionNotification},
    {"message/feedback-report", ReportKind::feedback},
};

/// Where a field belongs that only one side can have.
enum class Side { message, recipient };
struct FieldRow {
  ReportKind kind;
  std::string_view name;
  Side side;
  bool once = false;  ///< A second one starts another recipient.
};
constexpr FieldRow kFields[] = {
    {ReportKind::deliveryStatus, "Original-Envelope-Id", Side::message},
    {ReportKind::deliveryStatus, "Reporting-MTA", Side::message},
    {ReportKind::deliveryStatus, "DSN-Gateway", Side::message},
    {ReportKind::deliveryStatus, "Received-From-MTA", Side::message},
    {ReportKind::deliveryStatus, "Arrival-Date", Side::message},
    {ReportKind::deliveryStatus, "Original-Recipient", Side::recipient, true},
    {ReportKind::deliveryStatus, "Final-Recipient", Side::recipient, true},
    {ReportKind::deliveryStatus, "Action", Side::recipient},
    {ReportKind::deliveryStatus, "Status", Side::recipient},
    {ReportKind::deliveryStatus, "Remote-MTA", Side::recipient},
    {ReportKind::deliveryStatus, "Diagnostic-Code", Side::recipient},
    {ReportKind::deliveryStatus, "Last-Attempt-Date", Side::recipient},
    {ReportKind::deliveryStatus, "Final-Log-ID", Side::recipient},
    {ReportKind::deliveryStatus, "Will-Retry-Until", Side::recipient},
    {ReportKind::dispositionNotification, "Original-Recipient", Side::recipient, true},
    {ReportKind::dispositionNotification, "Final-Recipient", Side::recipient, true},
    {ReportKind::dispositionNotification, "Failure", Side::recipient},
    {ReportKind::dispositionNotification, "Error", Side::recipient},
    {ReportKind::dispositionNotification, "Warning", Side::recipient},
    {ReportKind::feedback, "Original-Rcpt-To", Side::recipient, true},
};

const FieldRow* rowOf(ReportKind kind, std::string_view name) noexcept {
  const FieldRow* const row = std::ranges::find_if(
      kFields, [&](const FieldRow& r) { return r.kind == kind && equalsNoCase(r.name, name); });
  return row == std::end(kFields) ? nullptr : row;
}

/// Fields of a MIME header, which some programs put before the text of a report and before each block.
bool isMimeField(std::string_view name) noexcept {
  return beginsWithNoCase(name, "Content-") || equalsNoCase(name, "MIME-Version");
}

/// Unfolding leaves runs of blanks, which count as one.
std::string withSingleBlanks(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (const char c : value) {
    if (!isBlankAscii(c))
      out += c;
    else if (!out.ends_with(' '))
      out += ' ';
  }
  return out;
}

/// The fields of a block. A line that is not a field continues the one before it.
std::vector<ReportField> fieldsOf(std::string_view block) {
  MimeHeader header;
  LogNull log;
  header.loadMimeHeaderText(block, log);
  std::vector<ReportField> fields;
  bool isLastOfMime = false;
  for (int i = 0; i < header.getNumFields(); ++i) {
    const std::string_view name = header.fieldName(i);
    if (!name.empty()) {
      isLastOfMime = isMimeField(name);
      if (!isLastOfMime) fields.push_back({std::string(name), withSingleBlanks(header.decodedValue(i))});
    } else if (!fields.empty() && !isLastOfMime) {
      fields.back().value.append(" ").append(withSingleBlanks(header.decodedValue(i)));
    }
  }
  return fields;
}

/// Removes the next block from the text, and the empty or blank lines before it.
std::string_view takeBlock(std::string_view& text) noexcept {
  std::size_t begin = 0, end = 0;
  bool inBlock = false;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t lineEnd = endOfLine(text, at);
    const bool isEmpty = trim(text.substr(at, lineEnd - at)).empty();
    if (isEmpty && inBlock) break;
    if (!isEmpty && !std::exchange(inBlock, true)) begin = at;
    at = end = afterLineBreak(text, lineEnd);
  }
  const std::string_view block = inBlock ? text.substr(begin, end - begin) : std::string_view();
  text.remove_prefix(end);
  return block;
}

/// A value of the form "type; text".
struct TypedValue {
  std::string_view type, text;
};
TypedValue typedValue(std::string_view value) noexcept {
  const std::size_t semicolon = value.find(';');
  const std::string_view type = trim(value.substr(0, semicolon == std::string_view::npos ? 0 : semicolon));
  if (type.empty() || type.find_first_of(" \t@<\"") != std::string_view::npos) return {{}, trim(value)};
  return {type, trim(value.substr(semicolon + 1))};
}

/// Reads "{C4}" after "\x" (RFC 6533, 3) and moves past it. Nullopt, and no move, when there is none.
std::optional<char32_t> takeEmbedded(std::string_view text, std::size_t& at) noexcept {
  if (!text.substr(at).starts_with("\\x{")) return std::nullopt;
  char32_t c = 0;
  std::size_t digit = at + 3;
  for (; digit < text.size() && digit < at + 9 && hexValue(text[digit]) >= 0; ++digit)
    c = c * 16 + static_cast<char32_t>(hexValue(text[digit]));
  if (digit == at + 3 || digit >= text.size() || text[digit] != '}') return std::nullopt;
  at = digit + 1;
  return c;
}

std::string decodeEmbedded(std::string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    if (const std::optional<char32_t> c = takeEmbedded(text, at))
      appendUtf8(out, *c);
    else
      out += text[at++];
  }
  return out;
}

std::string addressIn(std::string_view value) {
  auto [type, address] = typedValue(value);
  if (address.size() >= 2 && address.starts_with('<') && address.ends_with('>'))
    address = trim(address.substr(1, address.size() - 2));
  return equalsNoCase(type, "utf-8") ? decodeEmbedded(address) : std::string(address);
}

/// The text before a comment.
std::string wordIn(std::string_view value) {
  value = trim(value);
  return lowerCase(value.substr(0, value.find_first_of(" \t(;")));
}

std::string_view valueOf(const std::vector<ReportField>& fields, std::string_view name) noexcept {
  const std::string* const value = findReportField(fields, name);
  return value ? std::string_view(*value) : std::string_view();
}

class ReportReader {
 public:
  explicit ReportReader(ReportKind kind) noexcept : m_kind(kind) {}

  ReportFields read(std::string_view text) {
    for (std::string_view block = takeBlock(text); !block.empty(); block = takeBlock(text)) {
      std::vector<ReportField> fields = fieldsOf(block);
      beginBlock(fields);
      for (ReportField& field : fields) place(std::move(field));
    }
    for (ReportRecipient& recipient : m_report.recipients) explain(recipient);
    return std::move(m_report);
  }

 private:
  /// Only a delivery status has blocks; elsewhere an empty line means nothing.
  void beginBlock(const std::vector<ReportField>& fields) {
    if (m_kind != ReportKind::deliveryStatus) return;
    m_inRecipient = isAboutRecipient(fields);
    if (m_inRecipient) m_report.recipients.emplace_back();
  }

  /// Whether a block is about one recipient from its first field on, even if that field is unknown.
  bool isAboutRecipient(const std::vector<ReportField>& fields) const noexcept {
    bool anyOfRecipient = false;
    for (const ReportField& field : fields) {
      const FieldRow* const row = rowOf(m_kind, field.name);
      if (row && row->side == Side::message) return false;
      anyOfRecipient |= row != nullptr;
    }
    return anyOfRecipient;
  }

  void place(ReportField field) {
    const FieldRow* const row = rowOf(m_kind, field.name);
    if (row && row->side == Side::recipient) openRecipientFor(*row);
    const bool isExtension = !row && m_kind == ReportKind::deliveryStatus;
    const bool ofRecipient = row ? row->side == Side::recipient : isExtension && m_inRecipient;
    (ofRecipient ? m_report.recipients.back().fields : m_report.message).push_back(std::move(field));
  }

  void openRecipientFor(const FieldRow& row) {
    const bool isNewRecipient =
        row.once && m_inRecipient && findReportField(m_report.recipients.back().fields, row.name);
    if (!m_inRecipient || isNewRecipient) m_report.recipients.emplace_back();
    m_inRecipient = true;
  }

  void explain(ReportRecipient& recipient) const {
    switch (m_kind) {
      case ReportKind::deliveryStatus: return explainDelivery(recipient);
      case ReportKind::dispositionNotification: return explainDisposition(recipient);
      case ReportKind::feedback: break;
    }
    recipient.address = recipient.original = addressIn(valueOf(recipient.fields, "Original-Rcpt-To"));
    recipient.action = wordIn(valueOf(m_report.message, "Feedback-Type"));
  }

  static void readAddresses(ReportRecipient& recipient) {
    recipient.original = addressIn(valueOf(recipient.fields, "Original-Recipient"));
    recipient.address = addressIn(valueOf(recipient.fields, "Final-Recipient"));
    if (recipient.address.empty()) recipient.address = recipient.original;
  }

  static void explainDelivery(ReportRecipient& recipient) {
    readAddresses(recipient);
    recipient.action = wordIn(valueOf(recipient.fields, "Action"));
    recipient.status = wordIn(valueOf(recipient.fields, "Status"));
    recipient.diagnostic = typedValue(valueOf(recipient.fields, "Diagnostic-Code")).text;
  }

  /// "manual-action/MDN-sent-manually; displayed"
  void explainDisposition(ReportRecipient& recipient) const {
    readAddresses(recipient);
    recipient.action = wordIn(typedValue(valueOf(m_report.message, "Disposition")).text);
    for (const char* name : {"Error", "Failure", "Warning"})
      if (recipient.diagnostic.empty()) recipient.diagnostic = trim(valueOf(recipient.fields, name));
  }

  ReportKind m_kind;
  bool m_inRecipient = false;  ///< The fields being read are about the last recipient.
  ReportFields m_report;
};

}  // namespace

std::optional<ReportKind> reportKindOf(std::string_view mediaType) noexcept {
  for (const KindRow& row : kKinds)
    if (equalsNoCase(row.type, mediaType)) return row.kind;
  return std::nullopt;
}

const std::string* findReportField(const std::vector<ReportField>& fields, std::string_view name) noexcept {
  const auto found =
      std::ranges::find_if(fields, [name](const ReportField& f) { return equalsNoCase(f.name, name); });
  return found == fields.end() ? nullptr : &found->value;
}

ReportFields readReportFields(ReportKind kind, std::string_view text) {
  return ReportReader(kind).read(text);
}

}  // namespace mailtree
