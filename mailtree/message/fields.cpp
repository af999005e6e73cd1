#include "mailtree/message/fields.h"

#include <algorithm>
#include <tuple>

#include "mailtree/base/Utf.h"
#include "mailtree/message/address_rules.h"
#include "mailtree/message/date_rules.h"
#include "mailtree/message/internal_fields.h"
#include "mailtree/message/outline.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/header/HeaderValue.h"

namespace mailtree {
namespace {

constexpr std::string_view kContentFields[] = {"MIME-Version", "Content-Type", "Content-Transfer-Encoding"};

/// And X-Priority, which new messages have by default.
constexpr std::string_view kSingleFields[] = {"Date",       "From",       "Sender",      "Reply-To",
                                              "Message-ID", "Content-ID", "In-Reply-To", "References",
                                              "Subject",    "X-Priority"};

/// Fields that hold one address.
constexpr std::string_view kOneAddressFields[] = {"From", "Sender", "Return-Path", "Resent-Sender"};

constexpr RecipientField kRecipientFields[] = {
    {"To", RecipientKind::to, &Email2::m_toAddrs},
    {"Cc", RecipientKind::cc, &Email2::m_ccAddrs},
    {"Bcc", RecipientKind::bcc, &Email2::m_bccAddrs},
};

/// Fields that are written from their entries, which the tree of parts may hold as well.
constexpr std::string_view kEntryFields[] = {"From", "Sender", "Reply-To", "To", "Cc", "Bcc"};

template <std::size_t N>
bool isOneOf(const std::string_view (&names)[N], std::string_view name) {
  return std::ranges::any_of(names, [name](std::string_view other) { return equalsNoCase(name, other); });
}

bool hasSeveral(const Email2& email, std::string_view name) {
  const int first = email.m_header.findField(name);
  return first >= 0 && email.m_header.findField(name, first + 1) >= 0;
}

StringBuffer asHeaderValue(Email2& email, const ExtPtrArray& entries, LogBase& log) {
  StringBuffer value;
  const int codePage = email.emailCodePage();
  _svEmailAddress::emitAsMimeField(entries, codePage, /*first=*/true, /*forHeader=*/true,
                                   email.qbChooseForEmailAddrEncoding(codePage), value, log);
  return value;
}

void writeEntries(Email2& email, std::string_view name, const ExtPtrArray& entries, LogBase& log) {
  if (hasSeveral(email, name)) email.m_header.removeMimeField(std::string(name).c_str(), /*all=*/true);
  email.m_header.replaceMimeFieldUtf8_a(std::string(name).c_str(),
                                        asHeaderValue(email, entries, log).getString(), /*asGiven=*/true,
                                        /*ordinary=*/true, log);
}

/// Free text that is not read back as it is set: outer blanks are removed, and text that looks like an
/// encoded word is decoded.
bool needsEncodedWords(const Header& field) {
  return grammarOf(field.name) == FieldGrammar::unstructured &&
         (field.value != trim(field.value) || mayHoldEncodedWord(field.value));
}

/// The value as encoded words where it needs them.
std::optional<std::string> encodedValue(const Header& field) {
  if (!needsEncodedWords(field)) return std::nullopt;
  std::string encoded;
  appendEncodedWords(field.value, HeaderEncoding(), field.name.size() + 2, encoded);
  return encoded;
}

void copyEntries(const ExtPtrArray& from, ExtPtrArray& to) {
  for (int i = 0; i < from.getSize(); ++i) {
    Owned<_svEmailAddress> copy(new _svEmailAddress);
    copy->copyEmailAddress(*from.at<_svEmailAddress>(i));
    if (to.appendObject(copy.get())) std::ignore = copy.release();
  }
}

}  // namespace

bool isFieldName(std::string_view name) {
  return !name.empty() && std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7F && c != ':'; });
}

bool isContentField(std::string_view name) { return isOneOf(kContentFields, name); }

bool isSingleField(std::string_view name) { return isOneOf(kSingleFields, name); }

bool isIdentifier(std::string_view id) {
  return !id.empty() && isValidUtf8(id) && std::ranges::none_of(id, [](char c) {
    return isSpaceAscii(c) || isControlAscii(c) || c == '<' || c == '>';
  });
}

std::optional<std::string> valueProblem(std::string_view value) {
  if (!isValidUtf8(value)) return "not valid utf-8";
  if (value.find_first_of("\r\n") != std::string_view::npos)
    return "contains a line break, which would start a new field";
  const bool isPlain = std::ranges::none_of(value, [](char c) { return isControlAscii(c) && c != '\t'; });
  return isPlain ? std::nullopt : std::optional<std::string>("contains a control character");
}

std::optional<std::string> fieldProblem(const Header& field) {
  if (isInternalField(field.name)) return "fields with this name are never written";
  if (auto problem = valueProblem(field.value)) return problem;
  if (equalsNoCase(field.name, "Date") && !isHeaderDate(field.value))
    return "not a date such as 'Sat, 21 Nov 2026 08:30:00 +0100', or the wrong day of the week";
  const bool isNullPath = field.value == "<>" && equalsNoCase(field.name, "Return-Path");
  if (isNullPath || grammarOf(field.name) != FieldGrammar::addresses) return std::nullopt;
  const bool one = isOneOf(kOneAddressFields, field.name);
  return addressProblem(field.value, one ? AddressCount::one : AddressCount::several);
}

const RecipientField* recipientFieldOf(std::string_view name) {
  for (const RecipientField& field : kRecipientFields)
    if (equalsNoCase(name, field.name)) return &field;
  return nullptr;
}

bool areReadBack(Email2& email, const ExtPtrArray& entries) {
  LogNull log;
  return readsAsEntries(asHeaderValue(email, entries, log).view(), entries);
}

void setEntries(Email2& email, std::string_view name, const ExtPtrArray& entries, LogBase& log) {
  const RecipientField* const recipients = recipientFieldOf(name);
  if (recipients) {
    (email.*recipients->list).removeAllObjects();
    copyEntries(entries, email.*recipients->list);
  }
  if (equalsNoCase(name, "From")) {
    email.m_fromAddr.clearEmailAddress();
    if (entries.getSize() > 0) email.m_fromAddr.copyEmailAddress(*entries.at<_svEmailAddress>(0));
  }
  // Bcc recipients are hidden: only a field that is there already follows them.
  const bool isHidden = recipients && recipients->kind == RecipientKind::bcc;
  if (!isHidden || email.m_header.findField(name) >= 0) writeEntries(email, name, entries, log);
}

void setField(Email2& email, const Header& field, LogBase& log) {
  if (isOneOf(kEntryFields, field.name)) {
    ExtPtrArray entries;
    _svEmailAddress::parseAndLoadEntries(field.value, entries);
    return setEntries(email, field.name, entries, log);
  }
  if (hasSeveral(email, field.name)) email.m_header.removeMimeField(field.name.c_str(), /*all=*/true);
  const auto encoded = encodedValue(field);
  email.setHeaderField_a(field.name.c_str(), encoded.value_or(field.value).c_str(), encoded.has_value(), log);
}

void addField(Email2& email, const Header& field, LogBase& log) {
  if (isSingleField(field.name)) return setField(email, field, log);
  const RecipientField* const recipients = recipientFieldOf(field.name);
  if (!recipients) {
    const auto encoded = encodedValue(field);
    return email.addHeaderField2_a(field.name.c_str(), encoded.value_or(field.value).c_str(),
                                   encoded.has_value(), log);
  }
  ExtPtrArray entries;
  const bool isHidden = recipients->kind == RecipientKind::bcc;
  if (isHidden)
    copyEntries(email.m_bccAddrs, entries);
  else
    entriesOf(email.m_header, field.name, entries);
  _svEmailAddress::parseAndLoadEntries(field.value, entries);
  setEntries(email, field.name, entries, log);
}

void removeField(Email2& email, std::string_view name) {
  email.removeHeaderField(std::string(name).c_str());
  // The tree keeps the hidden recipients for sending; who removes the field wants to remove them.
  if (equalsNoCase(name, "Bcc")) email.m_bccAddrs.removeAllObjects();
}

void showBcc(Email2& email, LogBase& log) {
  if (email.m_bccAddrs.getSize() > 0) writeEntries(email, "Bcc", email.m_bccAddrs, log);
}

}  // namespace mailtree
