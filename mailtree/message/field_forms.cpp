#include "mailtree/message/field_forms.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/address/AddressReader.h"

namespace mailtree {
namespace {

/// As parseAndLoadEntries does, without an object for each.
void appendAddresses(std::string_view text, std::vector<Address>& addresses) {
  AddressReader reader(text, AddressReader::LoneNames::keep);
  while (std::optional<ReadAddress> read = reader.next())
    addresses.push_back({std::move(read->name), std::move(read->address)});
}

std::vector<Address> listOf(std::string_view text) {
  std::vector<Address> addresses;
  appendAddresses(text, addresses);
  return addresses;
}

/// A display name, unquoted and decoded.
std::string nameIn(std::string_view phrase) {
  const std::vector<Address> entry = listOf(std::string(phrase) + " <a@a>");
  return entry.empty() ? std::string() : entry.front().name;
}

/// Finds what separates addresses: the characters outside of quotes, comments and brackets.
class Separators {
 public:
  explicit Separators(std::string_view text) : m_text(text) {}

  /// The position of the next of these characters at or after `at`, else the end.
  std::size_t find(std::string_view wanted, std::size_t at) const {
    int comments = 0;
    char end = 0;  // of the quotes or brackets at this position
    for (; at < m_text.size(); ++at) {
      const char c = m_text[at];
      if (c == '\\')
        ++at;
      else if (end)
        end = c == end ? '\0' : end;
      else if (c == '(' || (c == ')' && comments > 0))
        comments += c == '(' ? 1 : -1;
      else if (comments == 0 && (c == '"' || c == '<' || c == '['))
        end = c == '<' ? '>' : c == '[' ? ']' : c;
      else if (comments == 0 && wanted.find(c) != std::string_view::npos)
        return at;
    }
    return m_text.size();
  }

 private:
  std::string_view m_text;
};

/// Moves past a comment, which may hold others and quoted pairs (RFC 5322, 3.2.2).
std::string_view afterComment(std::string_view text) {
  int depth = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\')
      ++at;
    else if (text[at] == '(')
      ++depth;
    else if (text[at] == ')' && --depth == 0)
      return text.substr(at + 1);
  }
  return {};
}

void addId(std::string_view text, std::vector<std::string>& ids) {
  std::string& id = ids.emplace_back(text);
  std::erase_if(id, [](char c) { return isSpaceAscii(c); });  // programs fold long ids
  if (id.empty()) ids.pop_back();
}

/// Gives what is in angle brackets, and the words with "@" outside of them, with folding still in them. Ends
/// when `take` returns false.
/// @param take  called with the text, and whether it is in brackets.
template <class Take>
void readIds(std::string_view text, Take take) {
  while (!(text = trimLeft(text)).empty()) {
    if (text.front() == '(') {
      text = afterComment(text);
    } else if (text.front() == '<') {
      const std::size_t end = std::min(text.find('>'), text.size());
      if (!take(text.substr(1, end - 1), true)) return;
      text.remove_prefix(std::min(end + 1, text.size()));
    } else {
      const std::size_t end = std::min(text.find_first_of(" \t\r\n<,;", 1), text.size());
      if (contains(text.substr(0, end), "@") && !take(text.substr(0, end), false)) return;
      text.remove_prefix(end);
    }
  }
}

}  // namespace

Address valueOf(const _svEmailAddress& entry) {
  return {std::string(entry.m_name.view()), std::string(entry.m_address.view())};
}

std::vector<Address> valuesOf(const ExtPtrArray& entries) {
  std::vector<Address> addresses;
  addresses.reserve(static_cast<std::size_t>(entries.getSize()));
  for (int i = 0; i < entries.getSize(); ++i) addresses.push_back(valueOf(*entries.at<_svEmailAddress>(i)));
  return addresses;
}

std::vector<Address> addressesIn(const MimeHeader& header, std::string_view name) {
  std::vector<Address> addresses;
  std::string scratch;
  for (int field = header.findField(name); field >= 0; field = header.findField(name, field + 1))
    appendAddresses(header.unfoldedValue(field, scratch), addresses);
  return addresses;
}

std::vector<std::string> idsIn(std::string_view text) {
  std::vector<std::string> ids, words;
  readIds(text,
          [&](std::string_view id, bool isBracketed) { return addId(id, isBracketed ? ids : words), true; });
  return std::move(ids.empty() ? words : ids);
}

std::vector<std::string> bracketedIn(std::string_view text) {
  std::vector<std::string> ids;
  readIds(text, [&](std::string_view id, bool isBracketed) {
    if (isBracketed) addId(id, ids);
    return true;
  });
  return ids;
}

std::optional<std::string> findFirstId(std::string_view text) {
  std::vector<std::string> ids, words;
  readIds(text, [&](std::string_view id, bool isBracketed) {
    addId(id, isBracketed ? ids : words);
    return ids.empty();
  });
  if (ids.empty()) ids = std::move(words);
  return ids.empty() ? std::nullopt : std::optional(std::move(ids.front()));
}

std::string firstIdIn(std::string_view text) {
  std::optional<std::string> id = findFirstId(text);
  return id ? *std::move(id) : std::string(trim(text));
}

std::vector<Address> addressesIn(const MimeHeader& header, int field) {
  std::string scratch;
  return listOf(header.unfoldedValue(field, scratch));
}

std::vector<AddressGroup> groupsIn(const MimeHeader& header, int field) {
  std::string scratch;
  const std::string_view text = header.unfoldedValue(field, scratch);
  const Separators separators(text);
  std::vector<AddressGroup> groups;
  const auto add = [&groups](std::string name, std::string_view addresses) {
    AddressGroup group{std::move(name), listOf(addresses)};
    if (!group.name.empty() || !group.addresses.empty()) groups.push_back(std::move(group));
  };
  std::size_t begin = 0;  // of addresses outside of groups
  while (begin < text.size()) {
    const std::size_t colon = separators.find(":", begin);
    std::size_t name = begin, comma = separators.find(",;", begin);  // the name begins after the last comma
    for (; comma < colon; comma = separators.find(",;", name)) name = comma + 1;
    if (colon == text.size()) name = colon;
    add({}, text.substr(begin, name - begin));
    if (colon == text.size()) break;
    const std::size_t end = separators.find(";", colon + 1);
    add(nameIn(text.substr(name, colon - name)), text.substr(colon + 1, end - colon - 1));
    begin = end + 1;
  }
  return groups;
}

std::optional<Date> dateIn(const MimeHeader& header, int field) {
  std::string scratch;
  const Result<Date> date = Date::parse(header.unfoldedValue(field, scratch));
  return date ? std::optional(*date) : std::nullopt;
}

std::vector<std::string> wordsIn(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(','), text.size());
    if (const std::string_view word = trim(text.substr(0, end)); !word.empty()) words.emplace_back(word);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

}  // namespace mailtree
