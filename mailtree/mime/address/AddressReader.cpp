#include "mailtree/mime/address/AddressReader.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/coding/EncodedWord.h"

namespace mailtree {
namespace {

using Kind = AddressToken::Kind;

// Commas in one name: "Last, First, Title". With more, it is a list of local parts.
constexpr std::size_t kMaxNameCommas = 3;

std::string decodedName(std::string raw) {
  std::string name = mayHoldEncodedWord(raw) ? decodeEncodedWords(raw) : std::move(raw);
  const std::string_view trimmed = trim(name);
  return trimmed.size() == name.size() ? name : std::string(trimmed);
}

// "a@b" in quotes, which some mailers write as an address.
bool isPlainAddress(std::string_view text) noexcept {
  const std::size_t at = text.find('@');
  return at != std::string_view::npos && isBareLocalPart(text.substr(0, at)) &&
         isBareLocalPart(text.substr(at + 1));
}

template <class Wanted>
void appendOnly(std::string_view text, Wanted isWanted, std::string& out) {
  if (std::all_of(text.begin(), text.end(), isWanted))
    out.append(text);
  else
    std::copy_if(text.begin(), text.end(), std::back_inserter(out), isWanted);
}

void appendVisible(std::string_view word, std::string& out) {
  appendOnly(
      word, [](char c) { return !isControlAscii(c); }, out);
}

constexpr bool belongsToAddress(char c) noexcept { return !isControlAscii(c) && c != '(' && c != ')'; }

void appendAddressToken(const AddressToken& token, std::string& out) {
  if (token.kind == Kind::quoted)
    appendUnescaped(token.text, out);
  else
    appendOnly(token.text, belongsToAddress, out);
}

std::string_view withoutSingleQuotes(std::string_view address) noexcept {
  const bool quoted = address.size() > 2 && address.front() == '\'' && address.back() == '\'';
  return quoted ? address.substr(1, address.size() - 2) : address;
}

}  // namespace

std::string nameOfTokens(std::span<const AddressToken> tokens) {
  std::string raw;
  for (const AddressToken& token : tokens) {
    if (token.afterBlank && !raw.empty() && !token.is(',')) raw.push_back(' ');
    if (token.kind == Kind::quoted) {
      appendUnescaped(token.text, raw);
    } else {
      appendVisible(token.text, raw);  // "DOMAIN\\user": a backslash escapes only inside quotes
    }
  }
  // A name quoted twice: "\"Jane Doe\"".
  if (tokens.size() == 1 && tokens.front().kind == Kind::quoted && isInQuotes(raw))
    raw = raw.substr(1, raw.size() - 2);
  return decodedName(std::move(raw));
}

std::optional<ReadAddress> AddressReader::next() {
  while (m_returned == m_ready.size()) {
    m_ready.clear();
    m_returned = 0;
    if (isAtEntry())
      if (const std::optional<PlainMailbox> plain = m_lexer.nextMailbox())
        return ReadAddress{decodedName(std::string(plain->name)), std::string(plain->address)};
    const AddressToken token = m_lexer.next();
    if (token.kind != Kind::end) {
      see(token);
      continue;
    }
    finishEntry();
    if (m_ready.empty()) return std::nullopt;
  }
  return std::move(m_ready[m_returned++]);
}

// Collecting tokens

/// Whether nothing of an entry was read.
bool AddressReader::isAtEntry() const noexcept {
  return m_tokens.empty() && m_comments.empty() && m_earlierParts.empty() && !m_blankBefore;
}

void AddressReader::see(AddressToken token) {
  if (m_tokens.capacity() == 0) m_tokens.reserve(kFewTokens);
  token.afterBlank |= std::exchange(m_blankBefore, false);
  if (token.kind == Kind::comment) {
    m_comments.push_back({m_tokens.size(), token.text});
  } else if (token.is(',')) {
    onComma(token);
  } else if (token.is(';')) {
    finishEntry();
  } else if (token.is(':')) {
    onColon(token);
  } else if (token.is('<')) {
    onOpeningAngle(token);
  } else if (token.is('>')) {
    onClosingAngle(token);
  } else {
    if (token.is('@') && m_angleEnd == kNone) m_hasAt = true;
    m_tokens.push_back(token);
  }
}

void AddressReader::onComma(const AddressToken& comma) {
  if (isInRoute()) {
    m_tokens.push_back(comma);
    return;
  }
  const bool mayBeName = m_angle == kNone && !m_hasAt && m_part < m_tokens.size();
  if (!mayBeName || m_earlierParts.size() == kMaxNameCommas) {
    finishEntry();
    return;
  }
  m_earlierParts.push_back({m_part, m_tokens.size()});
  m_tokens.push_back(comma);
  m_part = m_tokens.size();
}

// Whether a comma here belongs to a route: <@a,@b:c@d>.
bool AddressReader::isInRoute() const noexcept {
  if (!isAngleOpen() || m_tokens.size() <= m_angle + 1 || !m_tokens[m_angle + 1].is('@')) return false;
  AddressLexer ahead = m_lexer;
  const AddressToken following = ahead.next();
  return following.is('@') || following.is(',');
}

void AddressReader::onColon(const AddressToken& colon) {
  if (isAngleOpen()) {
    const Range inside{m_angle + 1, m_tokens.size()};
    const bool isRoute = !inside.isEmpty() && m_tokens[inside.begin].is('@');
    const bool isScheme = inside.end - inside.begin == 1;  // "<mailto:"
    if (!isRoute && !isScheme) {
      m_tokens.push_back(colon);
      return;
    }
    m_tokens.resize(inside.begin);
    m_hasAt = false;
    return;
  }
  if (m_angle != kNone || m_hasAt) {
    finishEntry();
    return;
  }
  finishEarlierParts();  // before the colon is a group name, or "mailto"
  clearEntry();
}

void AddressReader::onOpeningAngle(const AddressToken& angle) {
  const bool isFirst = m_angle == kNone;
  if (!isFirst && isAngleOpen()) {
    if (m_tokens.size() == m_angle + 1) return;  // doubled
    if (m_hasAt) finishEntry();                  // the ">" and the comma are missing
  } else if (!isFirst && m_hasAt) {              // the comma is missing: the next name follows the ">"
    const std::vector<AddressToken> nextName(m_tokens.begin() + static_cast<std::ptrdiff_t>(m_angleEnd) + 1,
                                             m_tokens.end());
    m_tokens.resize(m_angleEnd + 1);
    finishEntry();
    m_tokens = nextName;
  }
  openAngle(angle);  // also of "Name <remark> <a@b>", whose first pair was part of the name
}

void AddressReader::openAngle(const AddressToken& angle) {
  m_angle = m_tokens.size();
  m_angleEnd = kNone;
  m_hasAt = false;
  m_tokens.push_back(angle);
}

void AddressReader::onClosingAngle(const AddressToken& angle) {
  m_blankBefore = true;
  if (!isAngleOpen()) return;
  m_angleEnd = m_tokens.size();
  m_tokens.push_back(angle);
}

// Interpreting an entry

void AddressReader::finishEntry() {
  if (m_angle != kNone) {
    finishAngle();
  } else {
    finishEarlierParts();
    finishBare({m_part, m_tokens.size()});
  }
  clearEntry();
}

void AddressReader::finishAngle() {
  Range name{m_part, m_angle};
  if (name.isEmpty()) {
    name = takeDetachedName();
    finishEarlierParts();
  } else {
    finishQuotedParts();
    if (!m_earlierParts.empty()) name.begin = m_earlierParts.front().begin;
  }

  const Index angleEnd = std::min(m_angleEnd, m_tokens.size());
  std::string address = addressOf(addressRun({m_angle + 1, angleEnd}, /*inAngle=*/true));
  if (address.empty()) {
    if (name.begin < m_part && !m_earlierParts.empty()) name.begin = m_part;
    finishEarlierParts();
    if (containsAt(name)) return finishBare(name);  // "a@b <>"
    return addLoneName({name.begin, angleEnd == m_angle + 1 ? name.end : m_tokens.size()});
  }
  const Range rest{std::min(angleEnd + 1, m_tokens.size()), m_tokens.size()};
  const bool restIsAddress = containsAt(rest);
  std::string text = nameOf(name);
  if (text.empty() && !restIsAddress) text = nameOf(rest);
  give(std::move(text), {name.begin, restIsAddress ? rest.begin : rest.end}, std::move(address));
  if (restIsAddress) finishBare(rest);  // "<a@b> c@d"
}

void AddressReader::finishEarlierParts() {
  for (const Range& part : m_earlierParts) finishBare(part);
  m_earlierParts.clear();
}

// "Last", First <a@b> is one name; but after a whole name in quotes the comma is meant.
void AddressReader::finishQuotedParts() {
  const auto isWhole = [this](const Range& part) {
    return isQuotedName(part) && contains(m_tokens[part.begin].text, " ");
  };
  const auto lastWhole = std::find_if(m_earlierParts.rbegin(), m_earlierParts.rend(), isWhole);
  std::for_each(m_earlierParts.begin(), lastWhole.base(), [this](const Range& part) { finishBare(part); });
  m_earlierParts.erase(m_earlierParts.begin(), lastWhole.base());
}

// The name in "Full Name", <a@b>, taken from the earlier parts, which otherwise hold no address.
AddressReader::Range AddressReader::takeDetachedName() {
  if (m_earlierParts.empty()) return {m_angle, m_angle};
  const Range last = m_earlierParts.back();
  if (mayBeLocalPart(last)) return {m_angle, m_angle};
  m_earlierParts.pop_back();
  return last;
}

// Without angle brackets every run of tokens with an "@" is an address, and the words before it are its name.
void AddressReader::finishBare(Range range) {
  if (range.isEmpty()) return;
  if (!containsAt(range)) return finishWords(range);

  const std::size_t before = m_ready.size();
  Index nameBegin = range.begin;
  for (Range run{range.begin, range.begin}; run.end < range.end;) {
    run = firstRun({run.end, range.end}, /*inAngle=*/false);
    if (!containsAt(run)) continue;
    const bool isFirst = nameBegin == range.begin;  // a comment between addresses belongs to the first
    give(nameOf({nameBegin, run.begin}), {isFirst ? nameBegin : nameBegin + 1, run.end}, addressOf(run));
    nameBegin = run.end;
  }
  if (m_ready.size() > before && m_ready.back().name.empty())
    m_ready.back().name = nameOf({nameBegin, range.end});
}

// Without an "@", a single bare ASCII word is a local part; anything else is a name.
void AddressReader::finishWords(Range range) {
  std::string localPart = mayBeLocalPart(range) ? addressOf(range) : std::string();
  if (localPart.empty() || localPart.starts_with('"')) return addLoneName(range);
  give({}, range, std::move(localPart));
}

void AddressReader::clearEntry() noexcept {
  m_tokens.clear();
  m_comments.clear();
  m_earlierParts.clear();
  m_part = 0;
  m_angle = m_angleEnd = kNone;
  m_hasAt = m_blankBefore = false;
}

void AddressReader::give(std::string name, Range comments, std::string address) {
  if (address.empty()) return;
  if (name.empty()) name = commentIn(comments);
  m_ready.push_back({std::move(name), std::move(address)});
}

void AddressReader::addLoneName(Range range) {
  if (!m_keepsLoneNames || range.isEmpty()) return;
  std::string name = nameOf(range);
  if (!name.empty()) m_ready.push_back({std::move(name), {}});
}

// Tokens to text

// Whether the range is one quoted string that is not an address.
bool AddressReader::isQuotedName(Range range) const {
  if (range.end - range.begin != 1 || m_tokens[range.begin].kind != Kind::quoted) return false;
  std::string text;
  appendUnescaped(m_tokens[range.begin].text, text);
  return !isPlainAddress(text);
}

bool AddressReader::mayBeLocalPart(Range range) const {
  const bool isOneWord = firstRun(range, /*inAngle=*/false).end == range.end && !isQuotedName(range);
  return isOneWord && isAscii(m_tokens[range.begin].text);
}

// Whether a token continues the address of the token before it. Obsolete syntax allows blanks around "@" and
// ".". Those around "@" and before a dot are ignored; those after a dot only in angle brackets, or when there
// are blanks on both sides, because in "Dr. a@b" the first word is not part of the address.
bool AddressReader::joins(Index token, bool inAngle) const noexcept {
  const AddressToken& left = m_tokens[token - 1];
  const AddressToken& right = m_tokens[token];
  const auto isBorder = [](const AddressToken& t) { return t.kind == Kind::special && !t.is('@'); };
  if (isBorder(left) || isBorder(right)) return false;
  if (left.is('@') || right.is('@')) return true;

  const bool dotRight = right.kind == Kind::word && right.text.front() == '.';
  const bool dotLeft = left.kind == Kind::word && left.text.back() == '.';
  if (right.afterBlank) return dotRight || (dotLeft && (inAngle || left.text == "."));
  const bool anyQuoted = left.kind == Kind::quoted || right.kind == Kind::quoted;
  return !anyQuoted || dotLeft || dotRight;
}

AddressReader::Range AddressReader::firstRun(Range range, bool inAngle) const noexcept {
  Index end = range.begin;
  while (end < range.end && (end == range.begin || joins(end, inAngle))) ++end;
  return {range.begin, end};
}

// The first run with an "@"; without one the only run; else an empty range.
AddressReader::Range AddressReader::addressRun(Range range, bool inAngle) const noexcept {
  const Range only = firstRun(range, inAngle);
  if (only.end == range.end) return only;
  for (Range run = only; !run.isEmpty(); run = firstRun({run.end, range.end}, inAngle))
    if (containsAt(run)) return run;
  return {};
}

AddressReader::Index AddressReader::lastAt(Range range) const noexcept {
  for (Index i = range.end; i > range.begin; --i)
    if (m_tokens[i - 1].is('@')) return i - 1;
  return range.end;
}

std::string AddressReader::addressOf(Range range) const {
  const Index at = lastAt(range);
  std::string address;
  bool isQuoted = false;
  for (Index i = range.begin; i < at; ++i) {
    isQuoted |= m_tokens[i].kind == Kind::quoted;
    appendAddressToken(m_tokens[i], address);
  }
  const bool isAddressInQuotes = at == range.end && range.end - range.begin == 1 && isPlainAddress(address);
  if (isQuoted && !address.empty() && !isBareLocalPart(address) && !isAddressInQuotes) {
    std::string quoted;
    appendQuotedString(address, quoted);
    address = std::move(quoted);
  }
  for (Index i = at; i < range.end; ++i) appendAddressToken(m_tokens[i], address);

  const bool isOnlyEncodedWord = at == range.end && mayHoldEncodedWord(address);
  if (address == "@" || isOnlyEncodedWord) return {};
  const std::string_view bare = withoutSingleQuotes(address);
  return bare.size() == address.size() ? address : std::string(bare);
}

std::string AddressReader::nameOf(Range range) const {
  if (range.isEmpty()) return {};
  return nameOfTokens(std::span(m_tokens).subspan(range.begin, range.end - range.begin));
}

std::string AddressReader::commentIn(Range range) const {
  const auto found =
      std::lower_bound(m_comments.begin(), m_comments.end(), range.begin,
                       [](const Comment& comment, Index token) { return comment.before < token; });
  if (found == m_comments.end() || found->before > range.end) return {};
  std::string raw;
  appendUnescaped(found->inside, raw);
  return decodedName(std::move(raw));
}

}  // namespace mailtree
