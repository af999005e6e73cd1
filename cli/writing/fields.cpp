#include "cli/writing/fields.h"

#include <algorithm>
#include <map>
#include <utility>

#include "cli/message/internal_fields.h"
#include "cli/support/errors.h"
#include "cli/writing/addresses.h"
#include "cli/writing/dates.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/header/HeaderValue.h"

namespace mailtree::cli {
namespace {

/// Derived from the content; any other value would make it unreadable.
constexpr std::string_view kContentFields[] = {"MIME-Version", "Content-Type", "Content-Transfer-Encoding"};

/// Fields that a message has at most once (RFC 5322, 3.6), and X-Priority, which new messages
/// have by default.
constexpr std::string_view kSingleFields[] = {"Date",       "From",       "Sender",      "Reply-To",
                                              "Message-ID", "Content-ID", "In-Reply-To", "References",
                                              "Subject",    "X-Priority"};

/// Fields for which the model keeps one address.
constexpr std::string_view kOneAddressFields[] = {"From", "Sender", "Reply-To", "Return-Path"};

struct RecipientField {
  std::string_view name;
  RecipientKind kind;
  ExtPtrArray Email2::*list;
};

constexpr RecipientField kRecipientFields[] = {
    {"To", RecipientKind::to, &Email2::m_toAddrs},
    {"Cc", RecipientKind::cc, &Email2::m_ccAddrs},
    {"Bcc", RecipientKind::bcc, &Email2::m_bccAddrs},
};

template <std::size_t N>
bool isOneOf(const std::string_view (&names)[N], std::string_view name) {
  return std::any_of(names, names + N, [name](std::string_view other) { return equalsNoCase(name, other); });
}

const RecipientField* recipientFieldOf(std::string_view name) {
  for (const RecipientField& field : kRecipientFields)
    if (equalsNoCase(name, field.name)) return &field;
  return nullptr;
}

/// ftext of RFC 5322 (3.6.8).
bool isFieldName(std::string_view name) {
  return !name.empty() &&
         std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F && c != ':'; });
}

void addRecipients(Email2& email, const RecipientField& field, const std::string& value, LogBase& log) {
  const bool isShown = field.kind == RecipientKind::bcc && email.hasHeaderField("Bcc", log);
  email.addMultipleRecip(static_cast<int>(field.kind), value.c_str(), log);
  if (isShown) showBcc(email, log);
}

/// Empties only the list, so the field keeps its place in the header.
void setRecipients(Email2& email, const RecipientField& field, const std::string& value, LogBase& log) {
  (email.*field.list).removeAllObjects();
  email.addMultipleRecip(static_cast<int>(field.kind), value.c_str(), log);
  if (field.kind == RecipientKind::bcc) showBcc(email, log);
}

bool hasSeveral(const Email2& email, std::string_view name) {
  const int first = email.m_header.findField(name);
  return first >= 0 && email.m_header.findField(name, first + 1) >= 0;
}

}  // namespace

HeaderField fieldOfText(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return {};
  return {std::string(text.substr(0, colon)), std::string(trim(text.substr(colon + 1)))};
}

std::optional<std::string> fieldNameProblem(std::string_view name) {
  if (!isFieldName(name))
    return "expected a name of visible ASCII characters and a colon, such as 'X-Name: value'";
  if (isOneOf(kContentFields, name)) return "it is derived from the content";
  return std::nullopt;
}

std::optional<std::string> valueProblem(std::string_view value) {
  if (!isValidUtf8(value)) return "not valid utf-8";
  if (value.find_first_of("\r\n") != std::string_view::npos)
    return "contains a line break, which would start a new field";
  const bool isPlain =
      std::none_of(value.begin(), value.end(), [](char c) { return isControlAscii(c) && c != '\t'; });
  return isPlain ? std::nullopt : std::optional<std::string>("contains a control character");
}

std::optional<std::string> fieldProblem(const HeaderField& field) {
  if (auto problem = fieldNameProblem(field.name)) return problem;
  if (isInternalField(field.name)) return "fields with this name are never written";
  if (auto problem = valueProblem(field.value)) return problem;
  if (equalsNoCase(field.name, "Date") && !isHeaderDate(field.value))
    return "not a date such as 'Sat, 21 Nov 2026 08:30:00 +0100', or the wrong day of the week";
  const bool isNullPath = field.value == "<>" && equalsNoCase(field.name, "Return-Path");
  if (isNullPath || grammarOf(field.name) != FieldGrammar::addresses) return std::nullopt;
  const bool one = isOneOf(kOneAddressFields, field.name);
  return addressProblem(field.value, one ? AddressCount::one : AddressCount::several);
}

void FieldReader::take(const char* option, const char* name, const std::string& value) {
  take(option, HeaderField{name, std::string(trim(value))});
}

void FieldReader::take(const char* option, const char* name, const std::optional<std::string>& value) {
  if (value) take(option, name, *value);
}

void FieldReader::take(const char* option, const char* name, const std::vector<std::string>& values) {
  for (const std::string& value : values) take(option, name, value);
}

void FieldReader::take(const std::string& option, HeaderField field) {
  if (const auto problem = fieldProblem(field)) m_result = usageError(option, *problem);
  m_fields.push_back(std::move(field));
}

void setField(Email2& email, const HeaderField& field, LogBase& log) {
  if (hasSeveral(email, field.name)) email.m_header.removeMimeField(field.name.c_str(), /*all=*/true);
  if (const RecipientField* recipients = recipientFieldOf(field.name))
    return setRecipients(email, *recipients, field.value, log);
  email.setHeaderField(field.name.c_str(), field.value.c_str(), log);
}

void addField(Email2& email, const HeaderField& field, LogBase& log) {
  if (const RecipientField* recipients = recipientFieldOf(field.name))
    return addRecipients(email, *recipients, field.value, log);
  if (isOneOf(kSingleFields, field.name)) return setField(email, field, log);
  email.addHeaderField2(field.name.c_str(), field.value.c_str(), log);
}

void addFields(Email2& email, const std::vector<HeaderField>& fields, LogBase& log) {
  std::map<const RecipientField*, std::string> lists;
  for (const HeaderField& field : fields) {
    const RecipientField* const recipients = recipientFieldOf(field.name);
    if (!recipients) continue;
    std::string& list = lists[recipients];
    if (!list.empty()) list += ", ";
    list += field.value;
  }
  for (const HeaderField& field : fields) {
    const auto list = lists.find(recipientFieldOf(field.name));
    if (list == lists.end()) {
      addField(email, field, log);
      continue;
    }
    // The first one adds all of its kind and leaves the list empty.
    if (!list->second.empty()) addField(email, {field.name, std::exchange(list->second, {})}, log);
  }
}

void removeField(Email2& email, const std::string& name) {
  email.removeHeaderField(name.c_str());
  // The library keeps the hidden recipients for sending; a user who removes the field wants to remove them.
  if (equalsNoCase(name, "Bcc")) email.clearRecipients(static_cast<int>(RecipientKind::bcc));
}

void showBcc(Email2& email, LogBase& log) {
  StringBuffer value;
  email.getAllRecipients(static_cast<int>(RecipientKind::bcc), value, log);
  if (!value.isEmpty()) email.setHeaderField_a("Bcc", value.getString(), /*asGiven=*/true, log);
}

}  // namespace mailtree::cli
