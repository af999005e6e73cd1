// message/problem_list.h - collects the problems of a message; each kind of check has a file of its own.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mailtree/message/internal.h"
#include "mailtree/message/received_entities.h"

namespace mailtree {

class ProblemList {
 public:
  using Kind = Problem::Kind;
  using Severity = Problem::Severity;

  explicit ProblemList(MessageState& state) : m_state(state) {}

  void add(int row, Severity severity, Kind kind, std::string text,
           std::optional<std::size_t> offset = std::nullopt) {
    m_problems.push_back({kind, MessageState::partOf(m_state, row).id(), std::move(text), severity, offset});
  }
  std::vector<Problem> take() { return std::move(m_problems); }

 private:
  MessageState& m_state;
  std::vector<Problem> m_problems;
};

/// "3 times"
inline std::string inWords(std::size_t count, std::string_view what) {
  return std::to_string(count).append(" ").append(what);
}

/// A piece of the message in a sentence: harmless, in quotes, and not too long.
std::string quoted(std::string_view text);

/// Fields that are there twice, cannot be read by everybody, or are missing.
void findFieldProblems(int row, const PartRow& part, const std::vector<ReceivedField>& fields,
                       ProblemList& problems);
/// A transfer encoding where none may be, or one that nobody knows.
void findEncodingProblems(int row, const PartRow& part, const std::vector<ReceivedField>& fields,
                          ProblemList& problems);
/// Names of the file that a part is.
void findNameProblems(int row, const PartRow& part, ProblemList& problems);
/// Who the message claims to be from.
void findSenderProblems(const Email2& root, const std::vector<ReceivedField>& fields, ProblemList& problems);
/// Encoded bodies, and boundaries.
void findStructureProblems(const ReceivedEntities& received, ProblemList& problems);
/// Lines and bytes that mail must not have.
void findLineProblems(const ReceivedEntities& received, ProblemList& problems);

}  // namespace mailtree
