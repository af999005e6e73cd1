// message/changing.cpp - changes of header fields. They do not touch the content, so a signature or an
// encrypted layer stays: the closed form of the message gets the same fields.
#include <algorithm>
#include <tuple>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/address_rules.h"
#include "mailtree/message/fields.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/header/HeaderValue.h"

namespace mailtree {
namespace {

Error badValue(std::string message, std::string_view field) {
  return {ErrorCode::badValue, std::move(message), std::string(field)};
}

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

Result<void> remove(MessageState& state, std::string_view field) {
  return state.changeHeader([field](Email2& email) { removeField(email, field); });
}

/// Programs read only so much of a header.
std::optional<Error> sizeProblem(MessageState& state, std::string_view name, std::size_t size) {
  const std::size_t present = state.root().m_header.getMimeHeaderSize();
  if (present + size > kMaxHeaderBytes) return badValue("the header would be too long", name);
  if (state.root().m_header.getNumFields() >= kMaxHeaderFields)
    return badValue("the header would have too many fields", name);
  return std::nullopt;
}

/// At most so many bytes when written: encoded words take up to five for one.
std::size_t writtenSize(std::string_view value) { return isAscii(value) ? value.size() : value.size() * 5; }

Result<void> set(MessageState& state, const Header& field) {
  if (auto problem = sizeProblem(state, field.name, writtenSize(field.value))) return *std::move(problem);
  LogNull log;
  return state.changeHeader([&](Email2& email) { setField(email, field, log); });
}

// Addresses

constexpr std::size_t kBytesAroundEntry = 8;  ///< Blanks, brackets, quotes, a comma and a line break.

std::optional<std::string> problemOf(const Address& entry) {
  if (trim(entry.name).empty() && trim(entry.address).empty()) return "no name and no address";
  if (const auto problem = valueProblem(entry.name)) return quoted(entry.name) + ": the name " + *problem;
  return entry.address.empty() ? std::nullopt : bareAddressProblem(entry.address);
}

void append(const Address& entry, ExtPtrArray& entries) {
  Owned<_svEmailAddress> copy(new _svEmailAddress);
  copy->m_name.setFromUtf8(std::string(trim(entry.name)).c_str());
  copy->m_address.setFromUtf8(std::string(trim(entry.address)).c_str());
  if (entries.appendObject(copy.get())) std::ignore = copy.release();
}

/// The entry that would be read differently, by its index.
int indexOfUnreadable(Email2& email, std::span<const Address> list) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    ExtPtrArray alone;
    append(list[i], alone);
    if (!areReadBack(email, alone)) return static_cast<int>(i);
  }
  return 0;
}

Result<void> set(MessageState& state, std::string_view field, const ExtPtrArray& entries, std::size_t size) {
  if (auto problem = sizeProblem(state, field, size)) return *std::move(problem);
  LogNull log;
  return state.changeHeader([&](Email2& email) { setEntries(email, field, entries, log); });
}

Result<void> setAddresses(MessageState& state, std::string_view field, std::span<const Address> list) {
  if (list.empty()) return remove(state, field);
  ExtPtrArray entries;
  std::size_t size = 0;
  for (const Address& entry : list) {
    if (const auto problem = problemOf(entry)) return badValue("not an address: " + *problem, field);
    append(entry, entries);
    size += writtenSize(entry.name) + entry.address.size() + kBytesAroundEntry;
  }
  if (!areReadBack(state.root(), entries)) {
    const Address& entry = list[static_cast<std::size_t>(indexOfUnreadable(state.root(), list))];
    return badValue("not an address: " + quoted(entry.name) + " is not read back as a name", field);
  }
  return set(state, field, entries, size);
}

Result<void> setAddresses(MessageState& state, std::string_view field, std::string_view text,
                          AddressCount count) {
  if (trim(text).empty()) return remove(state, field);
  if (const auto problem = addressProblem(text, count)) return badValue("not an address: " + *problem, field);
  return set(state, {std::string(field), std::string(text)});
}

// Identifiers

std::string_view withoutBrackets(std::string_view id) {
  id = trim(id);
  const bool hasBoth = id.size() > 1 && id.front() == '<' && id.back() == '>';
  return hasBoth ? id.substr(1, id.size() - 2) : id;
}

/// "<a> <b>"; the ids may be given with or without angle brackets.
Result<std::string> identifierList(std::span<const std::string> ids, std::string_view field) {
  std::string list;
  for (const std::string& given : ids) {
    const std::string_view id = withoutBrackets(given);
    if (!isIdentifier(id))
      return badValue("not an identifier such as 'a1@berg.example': " + quoted(given), field);
    if (!list.empty()) list += ' ';
    list.append("<").append(id).append(">");
  }
  return list;
}

Result<void> setIdentifier(MessageState& state, std::string_view field, std::string_view id) {
  if (trim(id).empty()) return remove(state, field);
  const std::string given(id);
  return identifierList({&given, 1}, field).and_then([&](std::string list) {
    return set(state, {std::string(field), std::move(list)});
  });
}

// Any field

std::optional<Error> nameProblem(std::string_view name) {
  if (!isFieldName(name)) return badValue("not a field name: " + quoted(name), name);
  if (isContentField(name)) return badValue("the field follows from the content: " + quoted(name), name);
  return std::nullopt;
}

std::optional<Error> problemOf(const Header& field) {
  if (auto problem = nameProblem(field.name)) return problem;
  if (const auto problem = fieldProblem(field))
    return badValue(field.name + " " + quoted(field.value) + ": " + *problem, field.name);
  return std::nullopt;
}

bool isAddressField(std::string_view name) { return grammarOf(name) == FieldGrammar::addresses; }

}  // namespace

Result<void> Message::setCharset(std::string_view name) {
  const int codePage = codePageOfCharset(name);
  if (codePage <= 0) return badValue("unknown charset: " + quoted(name), {});
  if (!isMailCodePage(codePage)) return badValue("not a charset for mail: " + quoted(name), {});
  m_state->opened.common->m_preferredCharset.setFromUtf8(std::string(name).c_str());
  return {};
}

Result<void> Message::setFrom(std::string_view address) {
  return setAddresses(*m_state, "From", address, AddressCount::one);
}

Result<void> Message::setFrom(const Address& address) {
  const bool isEmpty = address == Address();
  return setAddresses(*m_state, "From", std::span(&address, isEmpty ? 0 : 1));
}

Result<void> Message::setSender(std::string_view address) {
  return setAddresses(*m_state, "Sender", address, AddressCount::one);
}

Result<void> Message::setReplyTo(std::string_view addresses) {
  return setAddresses(*m_state, "Reply-To", addresses, AddressCount::several);
}

Result<void> Message::setTo(std::string_view addresses) {
  return setAddresses(*m_state, "To", addresses, AddressCount::several);
}

Result<void> Message::setTo(std::span<const Address> addresses) {
  return setAddresses(*m_state, "To", addresses);
}

Result<void> Message::setCc(std::string_view addresses) {
  return setAddresses(*m_state, "Cc", addresses, AddressCount::several);
}

Result<void> Message::setCc(std::span<const Address> addresses) {
  return setAddresses(*m_state, "Cc", addresses);
}

Result<void> Message::setBcc(std::string_view addresses) {
  return setAddresses(*m_state, "Bcc", addresses, AddressCount::several);
}

Result<void> Message::setBcc(std::span<const Address> addresses) {
  return setAddresses(*m_state, "Bcc", addresses);
}

Result<void> Message::setSubject(std::string_view text) { return setHeader("Subject", text); }

Result<void> Message::setDate(const Date& date) {
  if (const auto read = Date::parse(date.text()); !read || *read != date)
    return badValue("not a date between the years 1900 and 9999", "Date");
  return setHeader("Date", date.text());
}

Result<void> Message::setMessageId(std::string_view id) { return setIdentifier(*m_state, "Message-ID", id); }

Result<void> Message::setInReplyTo(std::string_view id) { return setIdentifier(*m_state, "In-Reply-To", id); }

Result<void> Message::setReferences(std::span<const std::string> ids) {
  if (ids.empty()) return remove(*m_state, "References");
  return identifierList(ids, "References").and_then([this](std::string list) {
    return set(*m_state, {"References", std::move(list)});
  });
}

Result<void> Message::setListId(std::string_view id) { return setIdentifier(*m_state, "List-Id", id); }

Result<void> Message::setHeader(std::string_view name, std::string_view value) {
  const Header field{std::string(name), std::string(value)};
  if (isAddressField(name) && trim(value).empty()) return removeHeader(name);
  if (auto problem = problemOf(field)) return *std::move(problem);
  return set(*m_state, field);
}

Result<void> Message::addHeader(std::string_view name, std::string_view value) {
  const Header field{std::string(name), std::string(value)};
  if (auto problem = problemOf(field)) return *std::move(problem);
  if (auto problem = sizeProblem(*m_state, name, writtenSize(value))) return *std::move(problem);
  LogNull log;
  return m_state->changeHeader([&](Email2& email) { addField(email, field, log); });
}

Result<void> Message::removeHeader(std::string_view name) {
  if (auto problem = nameProblem(name)) return *std::move(problem);
  return remove(*m_state, name);
}

}  // namespace mailtree
