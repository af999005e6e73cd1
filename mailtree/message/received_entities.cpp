#include "mailtree/message/received_entities.h"

#include <unordered_map>

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

std::vector<ReceivedField> fieldsIn(std::string_view text, std::size_t begin, std::size_t end) {
  std::vector<ReceivedField> fields;
  text = text.substr(0, end);
  for (std::size_t at = begin; at < end;) {
    const std::size_t lineEnd = endOfLine(text, at);
    const std::string_view line = text.substr(at, lineEnd - at);
    const std::size_t next = afterLineBreak(text, lineEnd);
    if (!line.empty() && isBlankAscii(line[0]) && !fields.empty()) {
      std::string_view& value = fields.back().value;
      value = {value.data(), static_cast<std::size_t>(line.data() + line.size() - value.data())};
    } else if (!trim(line).empty()) {
      const FieldStart start = readFieldStart(line);
      const std::size_t value = start.nameSize > 0 ? start.colon + 1 : 0;
      fields.push_back(
          {line.substr(0, start.nameSize), line.substr(value), at, start.colon > start.nameSize});
    }
    at = next;
  }
  return fields;
}

}  // namespace

ReceivedEntities::ReceivedEntities(MessageState& state) : m_state(state), m_text(state.receivedBytes()) {
  m_ofRow.assign(state.outline().rows.size(), -1);
  if (m_text.empty()) return;
  std::vector<EntityPlace> places;
  LogNull log;
  if (!m_root.loadText(m_text, places, log)) return;
  const std::size_t prologue = m_text.size() - MimeParser::skipPrologue(m_text).size();
  m_entities.reserve(places.size());
  for (const EntityPlace& place : places)
    m_entities.push_back(
        {place.entity, 0, prologue + place.begin, prologue + place.bodyBegin, prologue + place.end});
  assignRows();
}

/// Loading may have moved, wrapped or removed parts; where they begin in the text identifies them. An entity
/// that is no part now, such as the content of an opened layer, belongs to the last one before it.
void ReceivedEntities::assignRows() {
  std::unordered_map<Origin, int> rows;
  const Outline& outline = m_state.outline();
  for (std::size_t row = 1; row < outline.rows.size(); ++row)
    rows.emplace(outline.rows[row].node->m_origin, static_cast<int>(row));
  m_ofRow[0] = 0;
  for (std::size_t i = 1; i < m_entities.size(); ++i) {
    const auto found = rows.find(m_entities[i].entity->origin());
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
  return fieldsIn(m_text, entity->begin, entity->bodyBegin);
}

}  // namespace mailtree
