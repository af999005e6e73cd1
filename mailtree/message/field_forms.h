// message/field_forms.h - values of header fields in the forms that RFC 8621 (4.1.2) gives them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/Values.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

/// What is in angle brackets outside of comments, without white space: identifiers, URLs.
std::vector<std::string> bracketedIn(std::string_view text);
/// The ids in a field: those in angle brackets, without comments and obsolete phrases; when there are none,
/// the words with "@".
std::vector<std::string> idsIn(std::string_view text);
/// The first id in angle brackets, without them, else the first word with "@".
std::optional<std::string> findFirstId(std::string_view text);
/// The same; the whole text when there is no id.
std::string firstIdIn(std::string_view text);

/// Addresses that are listed together, and the name of their group (RFC 5322, 3.4); empty outside of groups.
struct AddressGroup {
  std::string name;
  std::vector<Address> addresses;
};

Address valueOf(const _svEmailAddress& entry);
std::vector<Address> valuesOf(const ExtPtrArray& entries);
/// The addresses of a field, those with a name only too.
std::vector<Address> addressesIn(const MimeHeader& header, int field);
/// Those of all fields of that name.
std::vector<Address> addressesIn(const MimeHeader& header, std::string_view name);
/// The same in groups, in order.
std::vector<AddressGroup> groupsIn(const MimeHeader& header, int field);
/// Nothing when it is not a date.
std::optional<Date> dateIn(const MimeHeader& header, int field);
/// The words of a list with commas, such as Content-Language.
std::vector<std::string> wordsIn(std::string_view text);

}  // namespace mailtree
