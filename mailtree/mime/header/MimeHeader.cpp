// Reads and changes fields of the list. Loading is in MimeHeaderLoad.cpp, writing in MimeHeaderWrite.cpp.
#include "mailtree/mime/header/MimeHeader.h"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/mime/header/HeaderParams.h"
#include "mailtree/mime/header/HeaderValue.h"
#include "mailtree/mime/header/Replacements.h"

namespace mailtree {

namespace {

constexpr std::string_view kDisposition = "Content-Disposition";
/// With a value that can be folded, every line stays far below 998.
constexpr std::size_t kMaxSetName = 256;
constexpr std::size_t kCompactAbove = 4096;

std::string cleanName(std::string_view name) {
  std::string out;
  for (const char c : name.substr(0, kMaxSetName))
    if (isFieldNameChar(c)) out += c;
  return out;
}

}  // namespace

// Stored fields

const MimeHeader::Field* MimeHeader::fieldAt(int index) const noexcept {
  return index >= 0 && index < getNumFields() ? &m_fields[static_cast<std::size_t>(index)] : nullptr;
}

std::string_view MimeHeader::nameOf(const Field& field) const noexcept {
  return std::string_view(m_block).substr(field.nameOffset, field.nameSize);
}

std::string_view MimeHeader::valueOf(const Field& field) const noexcept {
  const std::string_view value = std::string_view(m_block).substr(field.valueOffset, field.valueSize);
  return field.kind == Kind::received || field.kind == Kind::malformed ? trim(value) : value;
}

std::string_view MimeHeader::lineOf(const Field& field) const noexcept {
  return std::string_view(m_block).substr(field.nameOffset, field.lineSize());
}

// Reading

int MimeHeader::search(std::string_view name, int from) const noexcept {
  if (name.empty()) return -1;
  const char* const block = m_block.data();
  int empty = -1;
  for (const Field& field :
       std::span(m_fields).subspan(std::min(static_cast<std::size_t>(std::max(from, 0)), m_fields.size()))) {
    // The sizes differ in nearly all cases, before any letter is compared.
    if (field.nameSize != name.size() || !equalsNoCase({block + field.nameOffset, name.size()}, name))
      continue;
    const int index = static_cast<int>(&field - m_fields.data());
    if (!isOmittedAsEmpty(name, {block + field.valueOffset, field.valueSize})) return index;
    // An empty field is not written, so other programs would use the next of its name.
    if (empty < 0) empty = index;
  }
  return empty;
}

int MimeHeader::findLastField(std::string_view name) const noexcept {
  const auto isIt = [this, name](const Field& field) {
    return field.nameSize == name.size() && equalsNoCase(nameOf(field), name);
  };
  const auto found = std::find_if(m_fields.rbegin(), m_fields.rend(), isIt);
  return static_cast<int>(m_fields.rend() - found) - 1;
}

std::string_view MimeHeader::fieldName(int index) const noexcept {
  const Field* field = fieldAt(index);
  return field ? nameOf(*field) : std::string_view();
}

std::string_view MimeHeader::rawValue(int index) const noexcept {
  const Field* field = fieldAt(index);
  return field ? valueOf(*field) : std::string_view();
}

bool MimeHeader::isReceived(int index) const noexcept {
  const Field* field = fieldAt(index);
  return field && field->kind == Kind::received;
}

std::string_view MimeHeader::unfoldedValue(int index, std::string& scratch) const {
  const Field* field = fieldAt(index);
  return field ? unfolded(*field, scratch) : std::string_view();
}

std::string_view MimeHeader::unfolded(const Field& field, std::string& scratch) const {
  const std::string_view raw = valueOf(field);
  if (field.kind != Kind::received && field.kind != Kind::malformed) return raw;
  const bool is8bitText = m_has8bit && !isValidUtf8(raw);
  if (!is8bitText && !containsBreak(raw)) return raw;

  scratch.assign(raw);
  eraseBreaks(scratch);
  if (!is8bitText) return scratch;
  const std::string oneLine = std::exchange(scratch, {});
  appendBytesAsUtf8(codePageOfValue(raw), oneLine, scratch);
  return scratch;
}

std::string MimeHeader::decodedValue(int index) const {
  std::string scratch;
  const std::string_view value = unfoldedValue(index, scratch);
  return mayHoldEncodedWord(value) ? decodeEncodedWords(value) : std::string(value);
}

bool MimeHeader::getMimeFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const {
  const std::string_view text = viewOf(name);
  return getMimeFieldUtf8_2(text.data(), static_cast<unsigned>(text.size()), out, log);
}

bool MimeHeader::getMimeFieldUtf8_2(const char* name, unsigned nameLength, StringBuffer& out,
                                    LogBase& log) const {
  out.weakClear();
  return name && getFieldValueUtf8(findField({name, nameLength}), out, log);
}

bool MimeHeader::getFieldNameUtf8(int index, StringBuffer& out, LogBase&) const {
  out.weakClear();
  return fieldAt(index) && out.append(fieldName(index));
}

bool MimeHeader::getFieldValueUtf8(int index, StringBuffer& out, LogBase&) const {
  out.weakClear();
  if (!fieldAt(index)) return false;
  return neverThrow(false, [&] {
    std::string scratch;
    const std::string_view value = unfoldedValue(index, scratch);
    return mayHoldEncodedWord(value) ? out.append(decodeEncodedWords(value)) : out.append(value);
  });
}

bool MimeHeader::getSubFieldUtf8(const char* fieldName, const char* attrName, StringBuffer& out,
                                 LogBase&) const {
  out.weakClear();
  return neverThrow(false, [&] {
    std::string scratch;
    const ParameterizedValue field =
        parseParameterizedValue(unfoldedValue(findField(viewOf(fieldName)), scratch));
    const std::string* const value = field.params.find(viewOf(attrName));
    return value && out.append(std::string_view(*value));
  });
}

bool MimeHeader::hasField(const char* name, LogBase&) const { return findField(viewOf(name)) >= 0; }

bool MimeHeader::hasHeaderMatchingUtf8(const char* name, const char* pattern, bool caseSensitive,
                                       LogBase&) const {
  const std::string_view wanted = viewOf(name);
  return neverThrow(false, [&] {
    for (int i = findField(wanted); i >= 0; i = findField(wanted, i + 1))
      if (matchesWildcard(decodedValue(i), viewOf(pattern), caseSensitive)) return true;
    return false;
  });
}

// Changing

void MimeHeader::replaceMimeFieldUtf8(const char* name, const char* value, LogBase& log) {
  if (!value) return removeMimeField(name, /*all=*/true);
  if (!equalsNoCase(viewOf(name), kDisposition))
    return replaceMimeFieldUtf8_a(name, value, /*asGiven=*/false, /*ordinary=*/true, log);
  storeField(name, value, Kind::rawFilename);
}

void MimeHeader::replaceMimeFieldUtf8_a(const char* name, const char* value, bool asGiven, bool /*ordinary*/,
                                        LogBase&) {
  if (!value) return removeMimeField(name, /*all=*/true);
  storeField(name, value, asGiven ? Kind::asGiven : Kind::set);
}

void MimeHeader::addMimeField(const char* name, const char* value, bool asGiven, LogBase&) {
  if (!value) return;
  neverThrow(false, [&] {
    append(viewOf(name), viewOf(value), asGiven ? Kind::asGiven : Kind::set);
    return true;
  });
}

void MimeHeader::removeMimeField(const char* name, bool all) {
  const std::string_view wanted = viewOf(name);
  if (wanted.empty()) return;
  bool hasMore = true;
  const auto isUnwanted = [&](const Field& field) {
    if (!hasMore || !equalsNoCase(nameOf(field), wanted)) return false;
    m_unusedBytes += field.lineSize();
    hasMore = all;
    return true;
  };
  m_fields.erase(std::remove_if(m_fields.begin(), m_fields.end(), isUnwanted), m_fields.end());
}

void MimeHeader::removeHeadersBeginningWith(const char* prefix) {
  const std::string_view wanted = viewOf(prefix);
  if (wanted.empty()) return;
  std::erase_if(m_fields, [&](const Field& field) {
    if (!beginsWithNoCase(nameOf(field), wanted)) return false;
    m_unusedBytes += field.lineSize();
    return true;
  });
}

void MimeHeader::takeFieldsBeginningWith(const char* prefix, const MimeHeader& from) {
  removeHeadersBeginningWith(prefix);
  for (const Field& field : from.m_fields) {
    const std::string_view line = from.lineOf(field);
    if (!beginsWithNoCase(from.nameOf(field), viewOf(prefix))) continue;
    if (m_block.size() + line.size() > std::numeric_limits<std::uint32_t>::max()) break;
    Field entry = field;
    entry.nameOffset = static_cast<std::uint32_t>(m_block.size());
    entry.valueOffset = entry.nameOffset + (field.valueOffset - field.nameOffset);
    m_block += line;
    m_fields.push_back(entry);
    m_nameSizes |= sizeBit(entry.nameSize);
  }
  m_has8bit |= from.m_has8bit;
  m_hasNonCrlfBreaks |= from.m_hasNonCrlfBreaks;
  if (m_detectedCodePage == 0) m_detectedCodePage = from.m_detectedCodePage;
}

void MimeHeader::copyMimeHeaderFrom(const MimeHeader& other, LogBase&) {
  const bool foldLongValues = m_foldLongValues;
  neverThrow(false, [&] {
    MimeHeader copy(other);
    *this = std::move(copy);
    return true;
  });
  m_foldLongValues = foldLongValues;
}

bool MimeHeader::cloneMimeHeader(const MimeHeader& other) {
  return neverThrow(false, [&] {
    MimeHeader copy(other);
    *this = std::move(copy);
    return true;
  });
}

void MimeHeader::clear() {
  const bool foldLongValues = m_foldLongValues;
  *this = MimeHeader();
  m_foldLongValues = foldLongValues;
}

void MimeHeader::joinFields(std::string_view name) {
  const int first = findField(name);
  if (findField(name, first + 1) < 0 || first < 0) return;
  bool allReceived = true;
  for (int i = first; i >= 0; i = findField(name, i + 1)) allReceived &= fieldAt(i)->kind == Kind::received;

  std::string joined, scratch;
  for (int i = first; i >= 0; i = findField(name, i + 1)) {
    std::string_view value = trim(allReceived ? rawValue(i) : unfoldedValue(i, scratch));
    while (value.ends_with(',')) value = trimRight(value.substr(0, value.size() - 1));
    if (value.empty()) continue;
    if (!joined.empty()) joined += allReceived ? ",\r\n " : ", ";
    joined += value;
  }
  const std::string ownName(fieldName(first));
  storeField(m_fields[static_cast<std::size_t>(first)], ownName, joined,
             allReceived ? Kind::received : Kind::set);
  const auto isDuplicate = [&](const Field& field) {
    if (!equalsNoCase(nameOf(field), name)) return false;
    m_unusedBytes += field.lineSize();
    return true;
  };
  m_fields.erase(std::remove_if(m_fields.begin() + first + 1, m_fields.end(), isDuplicate), m_fields.end());
}

bool MimeHeader::replacePattern(const char* key, const char* value) {
  return neverThrow(false, [&] {
    Replacements single;
    single.add(viewOf(key), viewOf(value));
    return !replacePatterns(single).empty();
  });
}

std::vector<int> MimeHeader::replacePatterns(const Replacements& replacements) {
  std::vector<int> changed;
  for (int i = 0; i < getNumFields(); ++i)
    if (replaceInField(m_fields[static_cast<std::size_t>(i)], replacements)) changed.push_back(i);
  return changed;
}

/// The new value is final: it is already encoded where its grammar allows, so a value that looks like an
/// encoded word is not decoded as one.
bool MimeHeader::replaceInField(Field& entry, const Replacements& replacements) {
  if (entry.kind == Kind::malformed) return false;
  std::string scratch;
  std::string_view value = unfolded(entry, scratch);
  if (entry.kind == Kind::rawFilename) {
    scratch = renderRawFilename(withoutBreaks(value), kCpUtf8).text;
    value = scratch;
  }
  const std::string name(nameOf(entry));
  const auto replaced = replacedHeaderValue(name, value, replacements);
  return replaced && storeField(entry, name, *replaced, Kind::asGiven);
}

/// The first field of the name takes the value, or a new one is appended.
void MimeHeader::storeField(const char* name, const char* value, Kind kind) {
  neverThrow(false, [&] {
    const int index = findField(cleanName(viewOf(name)));
    if (index < 0)
      append(viewOf(name), viewOf(value), kind);
    else
      storeField(m_fields[static_cast<std::size_t>(index)], viewOf(name), viewOf(value), kind);
    return true;
  });
}

void MimeHeader::append(std::string_view name, std::string_view value, Kind kind) {
  Field entry{};
  if (!storeField(entry, name, value, kind)) return;
  m_fields.push_back(entry);
}

/// Appends a line to the block and points the entry to it. False, with nothing changed, when the name has no
/// valid character or the block would outgrow its offsets.
bool MimeHeader::storeField(Field& entry, std::string_view name, std::string_view value, Kind kind) {
  std::string line = cleanName(name);
  const std::size_t nameSize = line.size();
  if (nameSize == 0) return false;
  const bool mayHoldBreaks = kind == Kind::rawFilename || kind == Kind::received;
  line += ": ";
  if (!mayHoldBreaks && containsBreak(value))
    line += withoutBreaks(value);
  else
    line += value;

  if (m_unusedBytes > kCompactAbove && m_unusedBytes > m_block.size() / 2) compact();
  if (m_block.size() + line.size() > std::numeric_limits<std::uint32_t>::max()) return false;
  const std::size_t begin = m_block.size();
  m_block += line;
  m_unusedBytes += entry.lineSize();
  entry.nameOffset = static_cast<std::uint32_t>(begin);
  entry.nameSize = static_cast<std::uint32_t>(nameSize);
  m_nameSizes |= sizeBit(nameSize);
  entry.valueOffset = static_cast<std::uint32_t>(begin + nameSize + 2);
  entry.valueSize = static_cast<std::uint32_t>(line.size() - nameSize - 2);
  entry.kind = kind;
  return true;
}

/// Moves the lines in use together. Their line breaks belong to no field, so only lines count.
void MimeHeader::compact() {
  std::string block;
  block.reserve(m_block.size() - m_unusedBytes + kCompactAbove);
  for (Field& field : m_fields) {
    const std::size_t begin = block.size();
    block += lineOf(field);
    field.valueOffset = static_cast<std::uint32_t>(begin + (field.valueOffset - field.nameOffset));
    field.nameOffset = static_cast<std::uint32_t>(begin);
  }
  m_block = std::move(block);
  m_unusedBytes = 0;
}

}  // namespace mailtree
