// The members that an entity derives from its Content- fields: read from the header list, changed, written
// back to it. Every function that changes a member also rewrites the field, so the two always agree.

#include <algorithm>
#include <string>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/address/Address.h"

namespace mailtree {

namespace {

constexpr const char* kTypeField = "Content-Type";
constexpr const char* kDispositionField = "Content-Disposition";
constexpr const char* kTransferEncodingField = "Content-Transfer-Encoding";
constexpr const char* kIdField = "Content-ID";
/// In the order of ContentField.
constexpr std::string_view kContentFields[] = {kTypeField, kDispositionField, kTransferEncodingField,
                                               kIdField};

/// The text after a comment at the beginning of `value`; empty when the comment is unterminated.
std::string_view skipComment(std::string_view value) noexcept {
  int depth = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '(') ++depth;
    if (value[i] == ')' && --depth == 0) return value.substr(i + 1);
  }
  return {};
}

/// The mechanism named by a Content-Transfer-Encoding value, without comments, quotes or trailing text.
std::string_view transferEncodingOf(std::string_view value) noexcept {
  for (value = trim(value); !value.empty(); value = trimLeft(value)) {
    if (value.front() == '(')
      value = skipComment(value);
    else if (value.front() == '"' || value.front() == '\'')
      value.remove_prefix(1);
    else
      break;
  }
  const auto endsName = [](char c) {
    return isBlankAscii(c) || c == '\r' || c == '\n' || c == ';' || c == ',' || c == '(' || c == '"' ||
           c == '\'';
  };
  return value.substr(0, static_cast<std::size_t>(std::ranges::find_if(value, endsName) - value.begin()));
}

std::string_view stripMarks(std::string_view type) noexcept {
  const auto isMark = [](char c) { return isSpaceAscii(c) || c == '"' || c == '\'' || c == ','; };
  while (!type.empty() && isMark(type.front())) type.remove_prefix(1);
  while (!type.empty() && isMark(type.back())) type.remove_suffix(1);
  return type;
}

/// Where the first parameter begins in a disposition type that swallowed it because the semicolon or the type
/// itself is missing ("attachment filename=x", "filename=x"); npos in a proper type.
std::size_t swallowedParameter(std::string_view type) noexcept {
  const std::size_t equals = type.find('=');
  if (equals == std::string_view::npos) return equals;
  const std::string_view name = trimRight(type.substr(0, equals));
  const std::size_t blank = name.find_last_of(" \t");
  return blank == std::string_view::npos ? 0 : blank + 1;
}

}  // namespace

// Reading

void MimeMessage2::readContentFields(LimitSet& limits, const MimeMessage2* sibling) {
  for (std::size_t which = 0; which < std::size(kContentFields); ++which) {
    const int fieldIndex = m_header.findField(kContentFields[which]);
    if (fieldIndex < 0) continue;
    const bool isType = static_cast<ContentField>(which) == ContentField::type;
    if (isType && sibling && copyContentType(fieldIndex, *sibling)) continue;
    readContentField(static_cast<ContentField>(which), fieldIndex, limits);
  }
}

/// Sibling parts often have the same type. False when this one differs, or when the sibling no longer matches
/// its field: a charset changed while parsing is marked as a repair. Limits that the sibling exceeded are
/// already recorded, because one pass reads both.
bool MimeMessage2::copyContentType(int fieldIndex, const MimeMessage2& sibling) {
  const int other = sibling.m_header.findField(kTypeField);
  if (other < 0 || m_header.has8bit() || sibling.m_header.has8bit()) return false;
  if (sibling.m_repairs.has(Repair::charset) || sibling.m_repairs.has(Repair::contentType)) return false;
  if (m_header.rawValue(fieldIndex) != sibling.m_header.rawValue(other)) return false;
  m_contentType = sibling.m_contentType;
  m_parsedCharset = sibling.m_parsedCharset;
  m_charset = sibling.m_charset;
  return true;
}

void MimeMessage2::readContentField(ContentField which, int fieldIndex, LimitSet& limits) {
  std::string scratch;
  const std::string_view value = m_header.unfoldedValue(fieldIndex, scratch);
  switch (which) {
    case ContentField::type: return readContentType(value, limits);
    case ContentField::disposition: return readDisposition(value, limits);
    case ContentField::transferEncoding: m_transferEncoding.setString(transferEncodingOf(value)); return;
    case ContentField::id: m_contentId.setString(trim(value)); return;
  }
}

void MimeMessage2::readContentType(std::string_view value, LimitSet& limits) {
  if (!m_contentType.loadFromMimeHeaderValue(value, m_parsedCharset)) m_repairs.add(Repair::contentType);
  m_charset.setString(m_parsedCharset.getName());
  // A value with fewer semicolons cannot exceed the limit, so ordinary mail is not parsed twice.
  if (std::ranges::count(value, ';') > kMaxParameters && parseParameterizedValue(value).overLimit)
    limits.add(Limit::parameters);
}

void MimeMessage2::readDisposition(std::string_view value, LimitSet& limits) {
  ParameterizedValue parsed = parseParameterizedValue(value);
  if (parsed.overLimit) limits.add(Limit::parameters);
  std::string_view type = parsed.value;
  const std::size_t stray = swallowedParameter(type);
  std::string repaired;
  if (stray != std::string_view::npos) {
    const std::size_t offset = static_cast<std::size_t>(type.data() - value.data()) + stray;
    type = type.substr(0, stray);
    repaired.append("; ").append(value.substr(offset));
    parsed = parseParameterizedValue(repaired);
  }
  m_disposition.setString(stripMarks(type));
  std::string filename;
  parsed.params.take("filename", filename);
  m_filename.setString(filename);
}

// Changing

void MimeMessage2::refreshContentTypeField() {
  guarded([&] {
    if (m_contentType.m_type.isEmpty()) return;
    LogNull quiet;
    StringBuffer value;
    m_contentType.buildMimeHeaderValue(value, m_parsedCharset, /*withFlowed=*/true, /*withName=*/true, quiet);
    m_header.replaceMimeFieldUtf8_a(kTypeField, value.getString(), /*asGiven=*/true, /*ordinary=*/false,
                                    quiet);
  });
}

/// Keeps the parameters that have no member here, such as size and dates.
void MimeMessage2::refreshDispositionField() {
  guarded([&] {
    LogNull quiet;
    std::string scratch;
    const int fieldIndex = m_header.findField(kDispositionField);
    ParameterizedValue old = parseParameterizedValue(m_header.unfoldedValue(fieldIndex, scratch));
    std::string replaced;
    old.params.take("filename", replaced);

    std::string value(m_disposition.view());
    if (!m_filename.isEmpty()) appendParam("filename", m_filename, kCpUtf8, /*withFallback=*/true, value);
    for (const auto& param : old.params.params())
      appendParam(param.name, param.value, kCpUtf8, /*withFallback=*/false, value);
    const char* text = m_disposition.isEmpty() && m_filename.isEmpty() ? nullptr : value.c_str();
    m_header.replaceMimeFieldUtf8_a(kDispositionField, text, /*asGiven=*/true, /*ordinary=*/true, quiet);
  });
}

void MimeMessage2::collapseMultiple(const char* field, LogBase& log) {
  guarded([&] {
    const std::string_view name = viewOf(field);
    const int first = m_header.findField(name);
    if (first < 0 || m_header.findField(name, first + 1) < 0) return;
    ExtPtrArray entries;
    std::string scratch;
    for (int i = first; i >= 0; i = m_header.findField(name, i + 1))
      _svEmailAddress::parseAndLoadEntries(m_header.unfoldedValue(i, scratch), entries);

    // "Several words" in one field and "Otto <o@b.c>" in the next must not become one
    // name with a comma in it.
    MimeHeader joined(m_header);
    joined.joinFields(name);
    if (!readsAsEntries(joined.unfoldedValue(first, scratch), entries)) {
      StringBuffer value;
      _svEmailAddress::emitAsMimeField(entries, kCpUtf8, /*first=*/true, /*forHeader=*/true, /*useQ=*/true,
                                       value, log);
      if (!readsAsEntries(value.view(), entries))
        return;  // an address is too long for a line: the fields stay separate
      joined.replaceMimeFieldUtf8_a(std::string(m_header.fieldName(first)).c_str(), value.getString(),
                                    /*asGiven=*/true, /*ordinary=*/true, log);
    }
    m_header = std::move(joined);
  });
}

void MimeMessage2::setContentType(const char* type, bool refreshHeader, LogBase&) {
  m_contentType.m_type.setString(trim(viewOf(type)));
  m_contentType.m_type.toLowerCase();
  if (isMultipart()) {  // text without a charset
    m_charset.clear();
    m_parsedCharset.clear();
  }
  if (refreshHeader) refreshContentTypeField();
}

void MimeMessage2::setNameUtf8(const char* name, LogBase&) {
  m_contentType.m_name.setString(name);
  refreshContentTypeField();
}

void MimeMessage2::setCharset(const _svCharset& charset, LogBase&) {
  m_parsedCharset.copy(charset);
  m_charset.setString(m_parsedCharset.getName());
  refreshContentTypeField();
}

void MimeMessage2::setCharset(const char* name, LogBase& log) {
  _svCharset charset;
  charset.setByName(name);
  setCharset(charset, log);
}

void MimeMessage2::setBoundary(const char* boundary, LogBase&) {
  m_contentType.m_boundary.setString(boundary);
  refreshContentTypeField();
}

void MimeMessage2::setDisposition(const char* disposition, LogBase&) {
  m_disposition.setString(disposition);
  refreshDispositionField();
}

void MimeMessage2::setFilenameUtf8(const char* filename, LogBase&) {
  m_filename.setString(filename);
  refreshDispositionField();
}

void MimeMessage2::setContentEncoding(const char* encoding, LogBase& log) {
  m_transferEncoding.setString(encoding);
  m_header.replaceMimeFieldUtf8(kTransferEncodingField, encoding, log);
}

void MimeMessage2::addReplaceHeaderFieldUtf8(const char* name, const char* value, LogBase& log) {
  guarded([&] {
    // A duplicate must not take effect when the first field is removed.
    if (value)
      m_header.replaceMimeFieldUtf8(name, value, log);
    else
      m_header.removeMimeField(name, /*all=*/true);

    const auto known = std::ranges::find_if(
        kContentFields, [&](std::string_view field) { return equalsNoCase(field, viewOf(name)); });
    if (known == std::end(kContentFields)) return;
    const auto which = static_cast<ContentField>(known - std::begin(kContentFields));
    if (which == ContentField::type) m_contentType.clear();
    LimitSet limits;
    const int fieldIndex = m_header.findField(*known);
    if (fieldIndex >= 0 || which != ContentField::type) return readContentField(which, fieldIndex, limits);
    m_charset.clear();
    m_parsedCharset.clear();
  });
}

void MimeMessage2::copyContentFields(const MimeMessage2& from) {
  guarded([&] {
    LogNull quiet;
    for (const char* field : {kTypeField, kDispositionField, kTransferEncodingField}) {
      std::string scratch;
      const int fieldIndex = from.m_header.findField(field);
      if (fieldIndex < 0) continue;
      const std::string value(from.m_header.unfoldedValue(fieldIndex, scratch));
      m_header.replaceMimeFieldUtf8_a(field, value.c_str(), /*asGiven=*/true, /*ordinary=*/true, quiet);
    }
    LimitSet limits;
    readContentFields(limits);
  });
}

void MimeMessage2::extractHeader(MimeHeader& out) {
  guarded([&] {
    const bool foldLongValues = out.m_foldLongValues;
    m_header.encode8bitFields();
    out = std::move(m_header);
    out.m_foldLongValues = foldLongValues;
  });
}

}  // namespace mailtree
