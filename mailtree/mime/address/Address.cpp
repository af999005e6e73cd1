#include "mailtree/mime/address/Address.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <string>
#include <tuple>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/AddressLexer.h"
#include "mailtree/mime/address/AddressReader.h"
#include "mailtree/mime/coding/EncodedWord.h"

namespace mailtree {
namespace {

// Columns where an entry may begin: the first after "Reply-To: ", others after the blank of a folded line.
constexpr std::size_t kFirstColumn = 10;
constexpr std::size_t kFoldedColumn = 1;

// A line holds 998 bytes and an address cannot be folded: cut in two it would read as another address (RFC
// 5321, 4.5.3.1, allows 254).
constexpr std::size_t kMaxAddress = 900;
// A quoted name with its escapes takes at most twice this size and fits on a line; a
// longer one is split into encoded words.
constexpr std::size_t kMaxPlainName = 400;

void assign(_svEmailAddress& target, const ReadAddress& read) {
  target.m_name.getUtf8Sb_rw().setString(std::string_view(read.name));
  target.m_address.getUtf8Sb_rw().setString(std::string_view(read.address));
}

// Names

// Whether a header phrase can hold the text unquoted: atoms with single blanks between them.
bool isBarePhrase(std::string_view text) noexcept {
  if (text.empty() || text.front() == ' ' || text.back() == ' ' || contains(text, "  ")) return false;
  return std::all_of(text.begin(), text.end(), [](char c) { return c == ' ' || isAtomCharacter(c); });
}

// The text on one line: CR, LF and NUL end a line for some programs.
std::string singleLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  std::copy_if(text.begin(), text.end(), std::back_inserter(line),
               [](char c) { return c != '\r' && c != '\n' && c != '\0'; });
  return line;
}

// Parsers strip the quotes of a name that is itself in quotes.
bool needsEncoding(std::string_view name) noexcept {
  return !isAscii(name) || mayHoldEncodedWord(name) || name.size() > kMaxPlainName || isInQuotes(name) ||
         std::any_of(name.begin(), name.end(), [](char c) { return isControlAscii(c) && c != '\t'; });
}

struct Style {
  HeaderEncoding encoding;
  bool forHeader;
  bool isList;  ///< More than one entry.
};

void appendName(std::string_view name, const Style& style, std::size_t column, std::string& out) {
  if (style.forHeader && needsEncoding(name)) {
    appendEncodedWords(name, style.encoding, column, out);
  } else if (isBarePhrase(name)) {
    out += name;
  } else {
    appendQuotedString(name, out);
  }
}

// A name without an address. A quoted string with an "@" would read as an address. Beside other entries,
// a word or an encoded word would read as the surname of the next entry; no parser does that with
// several words in quotes.
void appendLoneName(std::string_view name, const Style& style, std::size_t column, std::string& out) {
  if (!style.forHeader || !(style.isList || contains(name, "@"))) return appendName(name, style, column, out);
  const bool mustEncode = needsEncoding(name) || contains(name, "@");
  if (mustEncode)
    appendEncodedWords(name, style.encoding, column, out);
  else
    appendQuotedString(name, out);
  if (style.isList && (mustEncode || !contains(name, " "))) out += " <>";
}

// Addresses

std::string quotedContent(std::string_view quoted) {
  std::string inside;
  appendUnescaped(quoted.substr(1, quoted.size() - 2), inside);
  return inside;
}

bool isQuoted(std::string_view text) noexcept {
  return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

// Blanks and the characters that end an address or begin another when outside quotes.
bool separatesAddresses(char c) noexcept {
  return isSpaceAscii(c) || isControlAscii(c) || c == '<' || c == '>' || c == ',';
}

// Text that could begin an encoded word, and so swallow the addresses after it, is quoted; in
// a domain it is broken up.
void appendLocalPart(std::string_view localPart, std::string& out) {
  std::string text;
  if (isQuoted(localPart)) {
    text = quotedContent(localPart);
  } else {
    std::remove_copy_if(localPart.begin(), localPart.end(), std::back_inserter(text), separatesAddresses);
  }
  if (isBareLocalPart(text) && !mayHoldEncodedWord(text)) {
    out += text;
  } else if (!text.empty()) {
    appendQuotedString(text, out);
  }
}

void appendDomain(std::string_view domain, std::string& out) {
  const bool isLiteral = domain.size() > 2 && domain.front() == '[' && domain.back() == ']';
  if (isLiteral) domain = domain.substr(1, domain.size() - 2);
  std::string text;
  for (const char c : domain) {
    const bool beginsEncodedWord = c == '?' && text.ends_with('=');
    const bool isAllowed = c == '.' || isAtomCharacter(c) || (isLiteral && c == ':');
    if (isAllowed && !beginsEncodedWord) text.push_back(c);
  }
  if (isLiteral) text = "[" + text + "]";
  out += text;
}

// The address as a header can hold it; empty when nothing is left.
std::string safeAddress(std::string_view address) {
  std::string out;
  const std::size_t at = address.rfind('@');
  appendLocalPart(address.substr(0, at), out);
  if (at == std::string_view::npos) return out;
  out.push_back('@');
  appendDomain(address.substr(at + 1), out);
  return out.size() == 1 ? std::string() : out;
}

// A bare local part gets angle brackets, or a parser could take it for the last name in "Last, First <a@b>".
void appendEntry(const _svEmailAddress& entry, const Style& style, bool isFirst, std::string& out) {
  const std::string name = singleLine(trim(entry.m_name.view()));
  const std::string address = safeAddress(trim(entry.m_address.view()));
  if (name.empty() && address.empty()) return;
  if (style.forHeader && address.size() > kMaxAddress) return;
  if (!isFirst) out += ", ";
  const std::size_t column = isFirst ? kFirstColumn : kFoldedColumn;
  if (address.empty()) return appendLoneName(name, style, column, out);
  if (!name.empty()) appendName(name, style, column, out);
  if (name.empty() && contains(address, "@")) {
    out += address;
    return;
  }
  if (!name.empty()) out.push_back(' ');
  out.append("<").append(address).append(">");
}

Style styleOf(int codePage, bool forHeader, bool useQ, bool isList) noexcept {
  return {{codePage, useQ ? WordEncoding::q : WordEncoding::b}, forHeader, isList};
}

int appendEntries(std::string_view text, AddressReader::LoneNames loneNames, ExtPtrArray& out) {
  int appended = 0;
  neverThrow(false, [&] {
    AddressReader reader(text, loneNames);
    while (const std::optional<ReadAddress> read = reader.next()) {
      Owned<_svEmailAddress> address(_svEmailAddress::createNewObject());
      if (!address) return false;
      assign(*address, *read);
      if (!out.appendObject(address.get())) return false;
      std::ignore = address.release();  // now owned by the list
      ++appended;
    }
    return true;
  });
  return appended;
}

void appendText(const std::string& text, StringBuffer& out, LogBase& log) {
  if (!out.append(std::string_view(text))) log.logError("Out of memory while writing email addresses.");
}

}  // namespace

_svEmailAddress* _svEmailAddress::createNewObject() {
  return neverThrow<_svEmailAddress*>(nullptr, [] { return new _svEmailAddress; });
}

bool _svEmailAddress::loadSingleEmailAddr(const char* text, bool /*relaxed*/, LogBase& /*log*/) {
  return neverThrow(false, [&] {
    AddressReader reader(viewOf(text));
    while (const std::optional<ReadAddress> read = reader.next()) {
      if (!contains(read->address, "@")) continue;
      assign(*this, *read);
      return true;
    }
    return false;
  });
}

int _svEmailAddress::parseAndLoadList(const char* text, ExtPtrArray& out, bool /*relaxed*/,
                                      LogBase& /*log*/) {
  return parseAndLoadList(viewOf(text), out);
}

int _svEmailAddress::parseAndLoadList(std::string_view text, ExtPtrArray& out) {
  return appendEntries(text, AddressReader::LoneNames::skip, out);
}

int _svEmailAddress::parseAndLoadEntries(std::string_view text, ExtPtrArray& out) {
  return appendEntries(text, AddressReader::LoneNames::keep, out);
}

void _svEmailAddress::emitAsMimeField(const ExtPtrArray& list, int codePage, bool /*first*/, bool forHeader,
                                      bool useQ, StringBuffer& out, LogBase& log) {
  neverThrow(false, [&] {
    const Style style = styleOf(codePage, forHeader, useQ, list.getSize() > 1);
    std::string text;
    for (int i = 0; i < list.getSize(); ++i)
      if (const auto* entry = list.at<_svEmailAddress>(i)) appendEntry(*entry, style, text.empty(), text);
    appendText(text, out, log);
    return true;
  });
}

void _svEmailAddress::emitAsNextInMimeField(int codePage, bool useQ, StringBuffer& value,
                                            LogBase& log) const {
  neverThrow(false, [&] {
    std::string text;
    const Style style = styleOf(codePage, /*forHeader=*/true, useQ, /*isList=*/true);
    appendEntry(*this, style, value.isEmpty(), text);
    appendText(text, value, log);
    return true;
  });
}

void _svEmailAddress::emitSelfAsMimeField(int codePage, bool /*first*/, bool forHeader, bool useQ,
                                          StringBuffer& out, LogBase& log) const {
  neverThrow(false, [&] {
    std::string text;
    appendEntry(*this, styleOf(codePage, forHeader, useQ, /*isList=*/false), /*isFirst=*/true, text);
    appendText(text, out, log);
    return true;
  });
}

void _svEmailAddress::copyEmailAddress(const _svEmailAddress& other) {
  m_name.copyFromX(other.m_name);
  m_address.copyFromX(other.m_address);
}

void _svEmailAddress::replaceString(const char* a, const char* b) {
  m_name.getUtf8Sb_rw().replaceAllOccurances(a, b);
  m_address.getUtf8Sb_rw().replaceAllOccurances(a, b);
}

void _svEmailAddress::clearEmailAddress() {
  m_name.clear();
  m_address.clear();
}

bool readsAsEntries(std::string_view text, const ExtPtrArray& entries) {
  AddressReader reader(text, AddressReader::LoneNames::keep);
  for (int i = 0; i < entries.getSize(); ++i) {
    const auto& entry = *entries.at<_svEmailAddress>(i);
    const std::optional<ReadAddress> read = reader.next();
    if (!read || read->name != entry.m_name.view() || read->address != entry.m_address.view()) return false;
  }
  return !reader.next();
}

}  // namespace mailtree
