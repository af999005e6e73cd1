#include "mailtree/mime/header/Replacements.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/address/Address.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/header/HeaderParams.h"
#include "mailtree/mime/header/HeaderValue.h"

namespace mailtree {

namespace {

using Value = std::optional<std::string>;

std::string encoded(std::string_view fieldName, std::string_view utf8) {
  return encodeUnstructured(utf8, {kCpUtf8, WordEncoding::q}, fieldName.size() + 2);
}

std::string decoded(std::string_view unfolded) {
  return mayHoldEncodedWord(unfolded) ? decodeEncodedWords(unfolded) : std::string(unfolded);
}

std::string_view longestWord(std::string_view key) noexcept {
  std::string_view longest;
  for (std::size_t at = 0; at < key.size();) {
    std::size_t end = at;
    while (end < key.size() && isAlnumAscii(key[end])) ++end;
    if (end - at > longest.size()) longest = key.substr(at, end - at);
    at = end + 1;
  }
  return longest;
}

/// Whether letters and digits of a header value read as written: nothing is encoded or escaped in it.
bool readsAsWritten(std::string_view value) noexcept {
  return !contains(value, "\\") && !contains(value, "*") && !mayHoldEncodedWord(value);
}

Value replaced(std::string_view text, const Replacements& replacements) {
  StringBuffer buffer(text);
  if (!replacements.replaceInLine(buffer)) return std::nullopt;
  return buffer.extractString();
}

// Addresses

std::string listAsField(const ExtPtrArray& list) {
  LogNull quiet;
  StringBuffer out;
  _svEmailAddress::emitAsMimeField(list, kCpUtf8, /*first=*/true, /*forHeader=*/true, /*useQ=*/true, out,
                                   quiet);
  return out.extractString();
}

std::string entryAsField(const _svEmailAddress& entry) {
  LogNull quiet;
  StringBuffer out;
  entry.emitSelfAsMimeField(kCpUtf8, /*first=*/true, /*forHeader=*/true, /*useQ=*/true, out, quiet);
  return out.extractString();
}

/// Appends the entry as it reads after the replacement; false, with nothing done, when no key occurs in it.
/// The text is written and parsed again, so it contains only what a header field can contain.
bool appendReplaced(const _svEmailAddress& entry, const Replacements& replacements, ExtPtrArray& out) {
  if (!replacements.occurIn(entry.m_name.view()) && !replacements.occurIn(entry.m_address.view()))
    return false;
  _svEmailAddress changed;
  changed.copyEmailAddress(entry);
  replacements.replaceInLine(changed.m_name.getUtf8Sb_rw());
  replacements.replaceInLine(changed.m_address.getUtf8Sb_rw());
  const bool wasBareWord = entry.m_name.isEmpty() && !contains(entry.m_address.view(), "@");
  if (wasBareWord && contains(changed.m_address.view(), "@"))
    _svEmailAddress::parseAndLoadList(changed.m_address.view(), out);
  else
    _svEmailAddress::parseAndLoadList(entryAsField(changed), out);
  return true;
}

bool anyOccursIn(const ExtPtrArray& list, const Replacements& replacements) noexcept {
  for (int i = 0; i < list.getSize(); ++i) {
    const auto* entry = list.at<_svEmailAddress>(i);
    if (entry &&
        (replacements.occurIn(entry->m_name.view()) || replacements.occurIn(entry->m_address.view())))
      return true;
  }
  return false;
}

/// Moves the last entry of a list to the end of another. Deletes one that is null or cannot be appended.
void moveLast(ExtPtrArray& from, ExtPtrArray& to) {
  Owned<SorvikObject> entry(from.removeAt(from.getSize() - 1));
  if (entry && to.appendObject(entry.get())) std::ignore = entry.release();  // now owned by the other list
}

/// The list is parsed before anything is replaced in it. An entry without an address is
/// text until a value adds one.
Value replacedAddresses(std::string_view fieldName, std::string_view unfolded,
                        const Replacements& replacements) {
  ExtPtrArray list;
  if (_svEmailAddress::parseAndLoadList(unfolded, list) > 0) {
    if (!replaceInAddresses(list, replacements)) return std::nullopt;
    return listAsField(list);
  }
  const std::string before = decoded(unfolded);
  const Value text = replaced(before, replacements);
  if (!text) return std::nullopt;
  if (contains(before, "@")) {  // in an encoded word: the text is a name and stays one
    _svEmailAddress entry;
    entry.m_name.setFromUtf8(text->c_str());
    return entryAsField(entry);
  }
  if (!contains(*text, "@")) return encoded(fieldName, *text);
  _svEmailAddress::parseAndLoadList(*text, list);
  return listAsField(list);
}

// Parameters

bool isName(std::string_view param) noexcept {
  return equalsNoCase(param, "name") || equalsNoCase(param, "filename");
}

/// A value with more parameters than the limit stays: the rest would be lost.
Value replacedParameters(std::string_view unfolded, const Replacements& replacements) {
  const ParameterizedValue parsed = parseParameterizedValue(unfolded);
  if (parsed.overLimit) return std::nullopt;
  Value out = replaced(parsed.value, replacements);
  bool isChanged = out.has_value();
  if (!out) out.emplace(parsed.value);
  for (const _svParamSet::Param& param : parsed.params.params()) {
    Value changed;
    if (!equalsNoCase(param.name, "boundary")) changed = replaced(param.value, replacements);
    isChanged |= changed.has_value();
    appendParam(param.name, changed ? *changed : param.value, kCpUtf8, isName(param.name), *out);
  }
  return isChanged ? out : std::nullopt;
}

}  // namespace

Replacements::Replacements(const ExtPtrArray& pairs) {
  for (int i = 0; i < pairs.getSize(); ++i)
    if (const auto* pair = pairs.at<StringPair>(i)) add(viewOf(pair->getKey()), viewOf(pair->getValue()));
}

void Replacements::add(std::string_view key, std::string_view value) {
  if (key.empty()) return;
  m_pairs.push_back(
      {key, value, longestWord(key), containsBreak(value) ? withoutBreaks(value) : std::string()});
}

bool Replacements::occurIn(std::string_view text) const noexcept {
  return std::any_of(m_pairs.begin(), m_pairs.end(), [text](const Pair& pair) {
    return findSubstring(text, pair.key) != std::string_view::npos;
  });
}

bool Replacements::mayOccurIn(std::string_view unfoldedValue) const noexcept {
  if (!readsAsWritten(unfoldedValue)) return true;
  return std::any_of(m_pairs.begin(), m_pairs.end(), [unfoldedValue](const Pair& pair) {
    return findSubstring(unfoldedValue, pair.anchor) != std::string_view::npos;
  });
}

const Replacements::Pair* Replacements::longestAt(std::string_view text) const noexcept {
  const Pair* longest = nullptr;
  for (const Pair& pair : m_pairs)
    if (text.starts_with(pair.key) && (!longest || pair.key.size() > longest->key.size())) longest = &pair;
  return longest;
}

bool Replacements::replaceAtOnce(std::string_view text, bool onOneLine, std::string& out) const {
  std::array<bool, 256> begins{};
  for (const Pair& pair : m_pairs) begins[static_cast<unsigned char>(pair.key.front())] = true;
  const int before = m_count;
  std::size_t done = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Pair* const pair =
        begins[static_cast<unsigned char>(text[at])] ? longestAt(text.substr(at)) : nullptr;
    if (!pair) {
      ++at;
      continue;
    }
    out.append(text.substr(done, at - done)).append(onOneLine ? pair->line() : pair->value);
    done = at += pair->key.size();
    ++m_count;
  }
  out.append(text.substr(done));
  return m_count != before;
}

bool Replacements::replaceIn(DataBuffer& text) const {
  if (isAtOnce()) {
    std::string changed;
    if (!replaceAtOnce(text.view(), /*onOneLine=*/false, changed)) return false;
    text.clear();
    return text.append(std::string_view(changed));
  }
  bool isChanged = false;
  for (const Pair& pair : m_pairs) isChanged |= text.replaceAllOccurances(pair.key, pair.value) > 0;
  return isChanged;
}

std::optional<std::string> Replacements::replacedIn(std::string_view text) const {
  std::string out;
  if (isAtOnce()) return replaceAtOnce(text, /*onOneLine=*/false, out) ? std::optional(out) : std::nullopt;
  if (!occurIn(text)) return std::nullopt;
  DataBuffer changed;
  changed.append(text);
  replaceIn(changed);
  return std::string(changed.view());
}

bool Replacements::replaceInLine(StringBuffer& text) const {
  if (isAtOnce()) {
    std::string changed;
    if (!replaceAtOnce(text.view(), /*onOneLine=*/true, changed)) return false;
    text.text().swap(changed);
    return true;
  }
  bool isChanged = false;
  for (const Pair& pair : m_pairs) {
    StringBuffer changed;
    if (replaceAllInto(changed, text.view(), pair.key, pair.line()) == 0) continue;
    text.text().swap(changed.text());
    isChanged = true;
  }
  return isChanged;
}

std::optional<std::string> replacedHeaderValue(std::string_view fieldName, std::string_view unfolded,
                                               const Replacements& replacements) {
  const FieldGrammar grammar = grammarOf(fieldName);
  const bool hasText = grammar == FieldGrammar::unstructured || grammar == FieldGrammar::addresses;
  if ((replacements.isAtOnce() && !hasText) || !replacements.mayOccurIn(unfolded)) return std::nullopt;
  switch (grammar) {
    case FieldGrammar::addresses: return replacedAddresses(fieldName, unfolded, replacements);
    case FieldGrammar::parameters: return replacedParameters(unfolded, replacements);
    case FieldGrammar::identifiers: return replaced(unfolded, replacements);
    case FieldGrammar::structured:
    case FieldGrammar::unstructured: break;
  }
  const Value text = replaced(decoded(unfolded), replacements);
  if (!text) return std::nullopt;
  return encoded(fieldName, *text);
}

bool replaceInAddresses(ExtPtrArray& list, const Replacements& replacements) {
  if (!anyOccursIn(list, replacements)) return false;
  ExtPtrArray reversed;
  while (list.getSize() > 0) moveLast(list, reversed);
  while (reversed.getSize() > 0) {
    const auto* entry = reversed.at<_svEmailAddress>(reversed.getSize() - 1);
    if (appendReplaced(*entry, replacements, list))
      const Owned<SorvikObject> gone(reversed.removeAt(reversed.getSize() - 1));
    else
      moveLast(reversed, list);
  }
  return true;
}

}  // namespace mailtree
