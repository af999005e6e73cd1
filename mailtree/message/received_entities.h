// message/received_entities.h - the entities of a message as they were received, before any repair.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

struct MessageState;

struct ReceivedField {
  std::string_view name;   ///< Empty: the line is not a field.
  std::string_view value;  ///< Folded and encoded.
  std::optional<std::size_t> offset;
  bool hasBlankBeforeColon = false;
};

struct ReceivedEntity {
  std::size_t begin, bodyBegin, end;
  std::string_view encoding;  ///< Content-Transfer-Encoding.
  std::string_view boundary;  ///< Of a multipart.
  bool isLeaf = true;
  int row = 0;  ///< The part that it became, or is in.
};

/// The bytes of a message, parsed again: a repaired tree does not show what was repaired. Without entities
/// when the message was changed since it was read.
class ReceivedEntities {
 public:
  explicit ReceivedEntities(MessageState& state);

  std::string_view text() const noexcept { return m_text; }
  const std::vector<ReceivedEntity>& all() const noexcept { return m_entities; }
  /// Null for a part that is not in the bytes, such as one of an opened layer.
  const ReceivedEntity* ofRow(int row) const noexcept;
  /// The fields of a part as received; those of the tree for a part that is not in the bytes.
  std::vector<ReceivedField> fieldsOf(int row) const;

 private:
  bool readSimple(std::size_t begin);
  void readAll(std::size_t begin);
  void assignRows(const std::vector<EntityPlace>& places);

  MessageState& m_state;
  std::string_view m_text;
  MimeMessage2 m_root;
  std::vector<ReceivedField> m_simpleFields;  ///< Of a message that readSimple() read.
  std::vector<ReceivedEntity> m_entities;     ///< In the order in which they begin.
  std::vector<int> m_ofRow;                   ///< Index of the entity that became the row; -1 for none.
};

}  // namespace mailtree
