// message/fields.h - header fields that are set: what they may hold, and how the tree of parts takes them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"
#include "mailtree/message/Values.h"

namespace mailtree {

/// ftext of RFC 5322 (3.6.8).
bool isFieldName(std::string_view name);
/// Whether the field is derived from the content: any other value would make it unreadable.
bool isContentField(std::string_view name);
/// Whether a message has the field at most once (RFC 5322, 3.6).
bool isSingleField(std::string_view name);

/// Whether the text can be an identifier (RFC 5322, 3.6.4), without angle brackets.
bool isIdentifier(std::string_view id);

/// Checks a one-line header value; returns the problem, or nothing.
std::optional<std::string> valueProblem(std::string_view value);
/// The same by the name of the field: dates and addresses are checked too.
std::optional<std::string> fieldProblem(const Header& field);

/// The recipient fields, which the tree holds as lists too.
struct RecipientField {
  std::string_view name;
  RecipientKind kind;
  ExtPtrArray Email2::*list;
};
/// Null for any other field.
const RecipientField* recipientFieldOf(std::string_view name);

/// Replaces all fields of this name; updates recipients and sender. Free text is read back as it is given.
void setField(Email2& email, const Header& field, LogBase& log);
/// Adds a field; sets it when a message may have only one.
void addField(Email2& email, const Header& field, LogBase& log);
/// Removes all fields of this name, and the recipients or the sender that they named.
void removeField(Email2& email, std::string_view name);

/// Whether a list is read as these entries after it was written.
bool areReadBack(Email2& email, const ExtPtrArray& entries);
/// Replaces all fields of this name by a list of entries (_svEmailAddress), which may be names alone.
void setEntries(Email2& email, std::string_view name, const ExtPtrArray& entries, LogBase& log);

/// Writes the Bcc recipients into the header, where every recipient can see them.
void showBcc(Email2& email, LogBase& log);

}  // namespace mailtree
