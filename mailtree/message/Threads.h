// message/Threads.h - which messages belong to one conversation (RFC 5256, REFERENCES).
//
//   Links      A message follows the last of its References, or what it is In-Reply-To. Messages that are not
//              there still join others that refer to them. Links that would make a circle are left out.
//   Subjects   Conversations with the same subject, but for the marks of answers, are one.
//   Order      By date: conversations by that of their first message, answers below what they answer.
//   Memory     About 100 bytes a message, and 40 for each message that is only referred to.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mailtree/base/Export.h"

namespace mailtree {

class MAILTREE_API Threads {
 public:
  /// A message of the list, as it is placed.
  struct Row {
    std::size_t message;  ///< In the order of add(), from 0.
    std::size_t thread;   ///< From 1.
    std::size_t depth;    ///< 0 for the first of a conversation.
  };

  struct Entry {
    std::string messageId, inReplyTo;
    std::vector<std::string> references;
    std::string subject;
    std::optional<std::chrono::sys_seconds> date;
  };

  void add(const Entry& entry);
  /// All messages in order. Nothing can be added afterwards.
  std::vector<Row> rows();

 private:
  using Id = std::uint32_t;
  static constexpr Id kNone = ~Id{0};

  /// A message, or the place of one that is missing.
  struct Node {
    Id message = kNone;
    Id ownParent = kNone;    ///< By its own fields.
    Id otherParent = kNone;  ///< By the References of others.
    Id parent = kNone;
  };
  struct Facts {
    std::int64_t date;
    std::uint64_t subject;  ///< Hash of the subject without marks; 0 when that is empty.
    bool isAnswer;          ///< It has marks.
  };
  class Arrangement;

  Id nodeOf(std::string_view messageId);
  Id addNode();
  void linkAll();

  std::vector<Node> m_nodes;
  std::vector<Facts> m_facts;  ///< By message.
  std::unordered_map<std::uint64_t, Id> m_byId;
};

}  // namespace mailtree
