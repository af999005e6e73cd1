#include "mailtree/message/received_entities.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "mailtree/message/internal.h"
#include "mailtree/mime/MimeParser.h"
#include "mailtree/mime/header/HeaderLines.h"

namespace mailtree {
namespace {

std::vector<ReceivedField> fieldsIn(const MimeHeader& header) {
  std::vector<ReceivedField> fields;
  fields.reserve(static_cast<std::size_t>(header.getNumFields()));
  for (int i = 0; i < header.getNumFields(); ++i)
    fields.push_back({header.fieldName(i), header.rawValue(i), {}});
  return fields;
}

/// The line belongs to the value of the field before.
void continueField(std::string_view line, ReceivedField& field) {
  std::string_view& value = field.value;
  value = {value.data(), static_cast<std::size_t>(line.data() + line.size() - value.data())};
}

ReceivedField fieldOf(std::string_view line, std::size_t offset) {
  const FieldStart start = readFieldStart(line);
  const std::size_t value = start.nameSize > 0 ? start.colon + 1 : 0;
  return {line.substr(0, start.nameSize), line.substr(value), offset, start.colon > start.nameSize};
}

std::vector<ReceivedField> fieldsIn(std::string_view text, std::size_t begin, std::size_t end) {
  std::vector<ReceivedField> fields;
  text = text.substr(0, end);
  for (std::size_t at = begin; at < end;) {
    const std::size_t lineEnd = endOfLine(text, at);
    const std::string_view line = text.substr(at, lineEnd - at);
    if (!line.empty() && isBlankAscii(line[0]) && !fields.empty())
      continueField(line, fields.back());
    else if (!trim(line).empty())
      fields.push_back(fieldOf(line, at));
    at = afterLineBreak(text, lineEnd);
  }
  return fields;
}

/// The header of a message that is one text, in which every line is a field or goes on with one.
class SimpleHeader {
 public:
  /// False when there is anything else in it.
  bool read(std::string_view text, std::size_t begin) {
    constexpr std::size_t kUsual = 32;
    m_fields.reserve(kUsual);
    for (std::size_t at = begin; at < text.size();) {
      const std::size_t lineEnd = endOfLine(text, at);
      const std::string_view line = text.substr(at, lineEnd - at);
      if (!line.empty() && !readLine(line, at)) return false;
      at = m_end = afterLineBreak(text, lineEnd);
      if (line.empty()) return !m_fields.empty();
    }
    return false;
  }
  std::vector<ReceivedField> takeFields() noexcept { return std::move(m_fields); }
  std::size_t end() const noexcept { return m_end; }  ///< Of the empty line after it.
  std::string_view encoding() const noexcept { return m_encoding; }

 private:
  bool readLine(std::string_view line, std::size_t offset) {
    if (isBlankAscii(line[0])) {
      if (m_fields.empty() || m_isEncoding || trim(line).empty()) return false;
      continueField(line, m_fields.back());
      return true;
    }
    const ReceivedField& field = m_fields.emplace_back(fieldOf(line, offset));
    m_isEncoding = false;
    if (field.name.empty()) return false;
    return !beginsWithNoCase(field.name, "Content-T") || readContentField(field.name, trim(field.value));
  }

  bool readContentField(std::string_view name, std::string_view value) {
    constexpr std::string_view kEncodings[] = {"7bit", "8bit", "quoted-printable", "base64"};
    const auto isValue = [value](std::string_view known) { return equalsNoCase(value, known); };
    if (equalsNoCase(name, "Content-Type"))
      return beginsWithNoCase(value, "text/") && !std::exchange(m_hasType, true);
    if (!equalsNoCase(name, "Content-Transfer-Encoding")) return true;
    m_isEncoding = true;
    return std::exchange(m_encoding, value).empty() && std::ranges::any_of(kEncodings, isValue);
  }

  std::size_t m_end = 0;
  std::string_view m_encoding;
  std::vector<ReceivedField> m_fields;
  bool m_hasType = false;
  bool m_isEncoding = false;  ///< The last field is an encoding, whose value must not go on.
};

}  // namespace

ReceivedEntities::ReceivedEntities(MessageState& state) : m_state(state), m_text(state.receivedBytes()) {
  m_ofRow.assign(state.outline().rows.size(), -1);
  if (m_text.empty()) return;
  const std::size_t begin = m_text.size() - MimeParser::skipPrologue(m_text).size();
  if (!readSimple(begin)) readAll(begin);
}

/// Reads a message that is one text with nothing remarkable in its header, as most are. False for others.
bool ReceivedEntities::readSimple(std::size_t begin) {
  if (m_ofRow.size() != 1 || !m_state.opened.common->m_limits.isEmpty()) return false;
  SimpleHeader header;
  if (!header.read(m_text, begin)) return false;
  m_entities.push_back({.begin = begin,
                        .bodyBegin = header.end(),
                        .end = m_text.size(),
                        .encoding = header.encoding(),
                        .boundary = {}});
  m_ofRow[0] = 0;
  m_simpleFields = header.takeFields();
  return true;
}

void ReceivedEntities::readAll(std::size_t begin) {
  std::vector<EntityPlace> places;
  LogNull log;
  if (!m_root.loadText(m_text, places, log)) return;
  m_entities.reserve(places.size());
  for (const EntityPlace& place : places) {
    const MimeMessage2& entity = *place.entity;
    m_entities.push_back(
        {.begin = begin + place.begin,
         .bodyBegin = begin + place.bodyBegin,
         .end = begin + place.end,
         .encoding = entity.getContentEncoding(),
         .boundary = entity.isMultipart() ? trimRight(entity.contentType().m_boundary) : std::string_view(),
         .isLeaf = entity.getNumParts() == 0});
  }
  assignRows(places);
}

/// Loading may have moved, wrapped or removed parts; where they begin in the text identifies them. An entity
/// that is no part now, such as the content of an opened layer, belongs to the last one before it.
void ReceivedEntities::assignRows(const std::vector<EntityPlace>& places) {
  std::unordered_map<Origin, int> rows;
  const Outline& outline = m_state.outline();
  for (std::size_t row = 1; row < outline.rows.size(); ++row)
    rows.emplace(outline.rows[row].node->m_origin, static_cast<int>(row));
  m_ofRow[0] = 0;
  for (std::size_t i = 1; i < m_entities.size(); ++i) {
    const auto found = rows.find(places[i].entity->origin());
    m_entities[i].row = found == rows.end() ? m_entities[i - 1].row : found->second;
    if (found != rows.end()) m_ofRow[static_cast<std::size_t>(found->second)] = static_cast<int>(i);
  }
}

const ReceivedEntity* ReceivedEntities::ofRow(int row) const noexcept {
  const int index = m_entities.empty() ? -1 : m_ofRow[static_cast<std::size_t>(row)];
  return index < 0 ? nullptr : &m_entities[static_cast<std::size_t>(index)];
}

std::vector<ReceivedField> ReceivedEntities::fieldsOf(int row) const {
  const ReceivedEntity* const entity = ofRow(row);
  if (!entity) return fieldsIn(m_state.outline().row(row).node->m_header);
  if (!m_simpleFields.empty()) return m_simpleFields;
  return fieldsIn(m_text, entity->begin, entity->bodyBegin);
}

}  // namespace mailtree
