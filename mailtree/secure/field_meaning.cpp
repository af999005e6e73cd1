#include "mailtree/secure/field_meaning.h"

#include <algorithm>
#include <string_view>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/address/AddressReader.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree {
namespace {

constexpr std::string_view kAddressFields[] = {"From",        "Sender",        "Reply-To",  "To",
                                               "Cc",          "Bcc",           "Resent-To", "Resent-Cc",
                                               "Resent-From", "Resent-Sender", "Resent-Bcc"};
constexpr std::string_view kDateFields[] = {"Date", "Resent-Date"};

template <class Names>
bool isOneOf(std::string_view name, const Names& names) {
  return std::ranges::any_of(names, [name](std::string_view each) { return equalsNoCase(name, each); });
}

std::string singleSpaced(std::string_view value) {
  std::string out;
  for (const char c : trim(value))
    if (!isSpaceAscii(c) || !out.ends_with(' ')) out += isSpaceAscii(c) ? ' ' : c;
  return out;
}

/// Number of letters, digits and 8-bit bytes: what remains of a text without its structure.
std::ptrdiff_t countOfWordBytes(std::string_view text) {
  return std::ranges::count_if(text, [](char c) { return isAlnumAscii(c) || is8bit(c); });
}

std::string withDomainInLowerCase(std::string address) {
  const std::size_t at = address.rfind('@');
  if (at != std::string::npos)
    std::transform(address.begin() + static_cast<std::ptrdiff_t>(at), address.end(),
                   address.begin() + static_cast<std::ptrdiff_t>(at), toLowerAscii);
  return address;
}

/// The entries of a list, one per line; empty when the parser skipped something, such as a name without an
/// address or a second comment, because a mail client may display it.
std::string comparedAddresses(std::string_view unfolded, std::string_view decoded) {
  AddressReader reader(unfolded);
  std::string list;
  std::ptrdiff_t read = 0;
  while (auto entry = reader.next()) {
    read += countOfWordBytes(entry->name) + countOfWordBytes(entry->address);
    list += singleSpaced(entry->name) + " <" + withDomainInLowerCase(std::move(entry->address)) + ">\n";
  }
  return read == countOfWordBytes(decoded) ? list : std::string();
}

/// Whether a value read as a date contains nothing else but a zone name in a comment: a mail client
/// may display the rest.
bool isDateAlone(std::string_view value) {
  constexpr std::size_t kLongestDate = 40, kLongestZone = 5;
  const std::size_t open = std::min(value.find('('), value.size());
  if (open > kLongestDate) return false;
  if (open == value.size()) return true;
  const std::string_view comment = trimRight(value.substr(open + 1));
  if (!comment.ends_with(')') || comment.size() > kLongestZone + 1) return false;
  return std::ranges::all_of(comment.substr(0, comment.size() - 1), isAlnumAscii);
}

std::string comparedDate(std::string_view unfolded) {
  SorvikSysTime time;
  if (!isDateAlone(trim(unfolded))) return {};
  return _svDateParser::parse(unfolded, time) ? std::to_string(time.toUnixTime()) + '\n' : std::string();
}

}  // namespace

std::string comparedValue(const MimeHeader& header, int index) {
  std::string scratch;
  const std::string_view unfolded = header.unfoldedValue(index, scratch);
  const std::string decoded = header.decodedValue(index);
  const std::string_view name = header.fieldName(index);
  // A final line break distinguishes these from text, which has none.
  std::string meaning;
  if (isOneOf(name, kAddressFields)) meaning = comparedAddresses(unfolded, decoded);
  if (isOneOf(name, kDateFields)) meaning = comparedDate(unfolded);
  return meaning.empty() ? singleSpaced(decoded) : meaning;
}

}  // namespace mailtree
