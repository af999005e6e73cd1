#include "mailtree/message/address_rules.h"

#include <algorithm>
#include <span>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/address/AddressLexer.h"

namespace mailtree {
namespace {

using Kind = AddressToken::Kind;
using Tokens = std::span<const AddressToken>;
using Problem = const char*;  // null: none

/// RFC 5321 (4.5.3.1.3): 256 bytes including the angle brackets.
constexpr std::size_t kMaxAddress = 254;

constexpr Problem kNeedsQuotes = "unquoted special character";

struct Entry {
  std::string_view text;
  std::vector<AddressToken> tokens;  ///< Without comments.
};

/// Whether all quotes and comments are terminated. The lexer tolerates unterminated ones.
bool hasBalancedQuotesAndComments(std::string_view list) {
  bool isQuoted = false;
  int depth = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const char c = list[i];
    if (c == '\\' && (isQuoted || depth > 0)) {
      ++i;
    } else if (c == '"' && depth == 0) {
      isQuoted = !isQuoted;
    } else if (!isQuoted && c == '(') {
      ++depth;
    } else if (!isQuoted && c == ')' && --depth < 0) {
      return false;
    }
  }
  return !isQuoted && depth == 0;
}

/// Splits a list at its commas, except those in quotes and comments.
std::vector<Entry> entriesOf(std::string_view list) {
  std::vector<Entry> entries(1);
  const char* begin = list.data();
  const auto close = [&](const char* end) {
    entries.back().text = trim(std::string_view(begin, static_cast<std::size_t>(end - begin)));
  };
  AddressLexer lexer(list);
  for (AddressToken token = lexer.next(); token.kind != Kind::end; token = lexer.next()) {
    if (token.is(',')) {
      close(token.text.data());
      begin = token.text.data() + 1;
      entries.emplace_back();
    } else if (token.kind != Kind::comment) {
      entries.back().tokens.push_back(token);
    }
  }
  close(list.data() + list.size());
  return entries;
}

std::size_t countOf(Tokens tokens, char special) {
  return static_cast<std::size_t>(std::count_if(tokens.begin(), tokens.end(),
                                                [special](const auto& token) { return token.is(special); }));
}

/// Number of tokens before the first such special; all when there is none.
std::size_t positionOf(Tokens tokens, char special) {
  return static_cast<std::size_t>(
      std::find_if(tokens.begin(), tokens.end(), [special](const auto& token) { return token.is(special); }) -
      tokens.begin());
}

/// Mailboxes such as "a..b" exist, but must be quoted (RFC 5322, 3.2.3).
bool hasStrayDot(std::string_view word) noexcept {
  return word.front() == '.' || word.back() == '.' || contains(word, "..");
}

Problem problemOfLocalPart(Tokens tokens) {
  const bool isOne = tokens.size() == 1;
  const bool isQuoted = isOne && tokens.front().kind == Kind::quoted;
  if (tokens.empty() || (isQuoted && tokens.front().text.empty())) return "missing local part";
  if (isQuoted) return nullptr;
  if (!isOne || tokens.front().kind != Kind::word || !isBareLocalPart(tokens.front().text))
    return kNeedsQuotes;
  return hasStrayDot(tokens.front().text) ? "misplaced dot in the local part" : nullptr;
}

bool isHostCharacter(char c) noexcept { return isAlnumAscii(c) || c == '-' || c == '_' || is8bit(c); }

bool isLabel(std::string_view label) noexcept {
  if (label.empty() || label.front() == '-' || label.back() == '-') return false;
  return std::all_of(label.begin(), label.end(), isHostCharacter);
}

/// The inside of "[192.0.2.1]" or "[IPv6:2001:db8::1]".
bool isLiteral(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return isAlnumAscii(c) || c == '.' || c == ':'; });
}

/// A host name (RFC 5321 and 6531), with underscores allowed, or an address literal.
bool isDomain(std::string_view domain) noexcept {
  if (domain.size() > 2 && domain.front() == '[' && domain.back() == ']')
    return isLiteral(domain.substr(1, domain.size() - 2));
  for (;;) {
    const std::size_t dot = domain.find('.');
    if (!isLabel(domain.substr(0, dot))) return false;
    if (dot == std::string_view::npos) return true;
    domain.remove_prefix(dot + 1);
  }
}

Problem problemOfDomain(Tokens tokens) {
  if (tokens.empty()) return "missing domain";
  const bool isWord = tokens.size() == 1 && tokens.front().kind == Kind::word;
  return isWord && isDomain(tokens.front().text) ? nullptr : "invalid domain";
}

/// local@domain, with nothing around it.
Problem problemOfBare(Tokens tokens) {
  if (tokens.empty()) return "missing address";
  for (const AddressToken& token : tokens)
    if (token.kind == Kind::special && !token.is('@')) return kNeedsQuotes;
  for (const AddressToken& token : tokens.subspan(1))
    if (token.afterBlank) return "white space in the address";
  const std::size_t at = positionOf(tokens, '@');
  if (at == tokens.size()) return "missing at sign";
  if (countOf(tokens, '@') > 1) return "more than one at sign";
  const Problem problem = problemOfLocalPart(tokens.first(at));
  return problem ? problem : problemOfDomain(tokens.subspan(at + 1));
}

/// Name <local@domain>
Problem problemOfAngle(Tokens tokens) {
  if (!tokens.back().is('>')) return "missing closing angle bracket at the end";
  const std::size_t name = positionOf(tokens, '<');
  for (const AddressToken& token : tokens.first(name))
    if (token.kind == Kind::special) return kNeedsQuotes;
  return problemOfBare(tokens.subspan(name + 1, tokens.size() - name - 2));
}

/// The library must read the entry as one address that fits in a header and an envelope.
Problem problemAsRead(const Entry& entry) {
  ExtPtrArray read;
  if (_svEmailAddress::parseAndLoadList(entry.text, read) != 1) return "cannot be read as one address";
  const bool fits = read.at<_svEmailAddress>(0)->m_address.view().size() <= kMaxAddress;
  return fits ? nullptr : "longer than 254 bytes";
}

Problem problemOf(const Entry& entry) {
  if (entry.tokens.empty()) return "missing address";
  const Problem problem =
      countOf(entry.tokens, '<') > 0 ? problemOfAngle(entry.tokens) : problemOfBare(entry.tokens);
  return problem ? problem : problemAsRead(entry);
}

std::string describe(std::string_view entry, std::string_view problem) {
  return "'" + std::string(entry) + "': " + std::string(problem);
}

}  // namespace

std::optional<std::string> addressProblem(std::string_view text, AddressCount count) {
  text = trim(text);
  if (!isValidUtf8(text)) return describe(text, "not valid utf-8");
  if (std::any_of(text.begin(), text.end(), isControlAscii))
    return describe(text, "contains a control character");
  if (!hasBalancedQuotesAndComments(text)) return describe(text, "unbalanced quotes or parentheses");
  const std::vector<Entry> entries = entriesOf(text);
  for (const Entry& entry : entries)
    if (const Problem problem = problemOf(entry)) return describe(entry.text, problem);
  if (count == AddressCount::one && entries.size() > 1)
    return describe(text, "more than one address where one is expected");
  return std::nullopt;
}

std::optional<std::string> bareAddressProblem(std::string_view address) {
  if (auto problem = addressProblem(address, AddressCount::one)) return problem;
  ExtPtrArray read;
  _svEmailAddress::parseAndLoadList(address, read);
  const auto& entry = *read.at<_svEmailAddress>(0);
  const bool isBare = entry.m_name.isEmpty() && entry.m_address.view() == address;
  return isBare ? std::nullopt : std::optional(describe(address, "more than local@domain"));
}

}  // namespace mailtree
