// message/line_problems.cpp - lines and bytes that mail must not have, because programs disagree about them.
#include <algorithm>
#include <string>

#include "mailtree/base/Search.h"
#include "mailtree/message/problem_list.h"
#include "mailtree/mime/LineLengths.h"

namespace mailtree {
namespace {

using Kind = Problem::Kind;
using Severity = Problem::Severity;
constexpr std::size_t kNowhere = std::string_view::npos;

std::size_t findNul(std::string_view text, std::size_t from) { return text.find('\0', from); }

std::size_t findBareCr(std::string_view text, std::size_t from) {
  for (std::size_t at = text.find('\r', from); at != kNowhere; at = text.find('\r', at + 1)) {
    const std::string_view rest = text.substr(at + 1);
    if (!rest.starts_with('\n') && !rest.starts_with("\r\n")) return at;
  }
  return kNowhere;
}

std::size_t findBareLf(std::string_view text, std::size_t from) {
  for (std::size_t at = text.find('\n', from); at != kNowhere; at = text.find('\n', at + 1))
    if (at == 0 || text[at - 1] != '\r') return at;
  return kNowhere;
}

/// Where the next line begins that is too long, `from` being the beginning of a line or inside one found.
std::size_t findLongLine(std::string_view text, std::size_t from) {
  if (from > 0) from = std::min(text.find('\n', from - 1), text.size() - 1) + 1;
  while (from < text.size()) {
    const std::size_t end = std::min(text.find('\n', from), text.size());
    const bool hasCr = end > from && text[end - 1] == '\r';
    if (end - from - hasCr > kLongestLine) return from;
    from = end + 1;
  }
  return kNowhere;
}

bool endsLinesInCrlf(std::string_view text) {
  const std::size_t end = text.find('\n');
  return end != kNowhere && end > 0 && text[end - 1] == '\r';
}

class LineChecks {
 public:
  LineChecks(const ReceivedEntities& received, ProblemList& problems)
      : m_text(received.text()), m_entities(received.all()), m_problems(problems) {}

  void run() {
    if (m_entities.empty()) return;
    if (findNul(m_text, 0) != kNowhere) tally(findNul, "NUL bytes", Kind::ambiguous, Severity::warning);
    if (hasLineLongerThan(m_text, kLongestLine))
      tally(findLongLine, "lines of more than 998 bytes", Kind::malformed, Severity::note);
    if (endsLinesInCrlf(m_text) && !hasBareLineEnd(m_text)) return;
    tally(findBareCr, "CR without LF, for some programs the end of a line", Kind::ambiguous,
          Severity::warning);
    if (endsLinesInCrlf(m_text))
      tally(findBareLf, "LF without CR, for some programs not the end of a line", Kind::ambiguous,
            Severity::warning);
  }

 private:
  using Find = std::size_t (*)(std::string_view text, std::size_t from);

  /// Reports what is found once for each header and each body.
  void tally(Find find, const char* what, Kind kind, Severity severity) {
    std::size_t entity = 0, next = find(m_text, 0);
    while (next != kNowhere) {
      while (entity + 1 < m_entities.size() && m_entities[entity + 1].begin <= next) ++entity;
      const ReceivedEntity& in = m_entities[entity];
      const bool isHeader = next < in.bodyBegin;
      const std::size_t end = isHeader                         ? in.bodyBegin
                              : entity + 1 < m_entities.size() ? m_entities[entity + 1].begin
                                                               : m_text.size();
      const std::size_t first = next;
      std::size_t count = 0;
      for (; next < end; next = find(m_text, next + 1)) ++count;
      if (!isHeader && equalsNoCase(in.encoding, "binary")) continue;
      m_problems.add(in.row, isHeader && kind == Kind::ambiguous ? Severity::danger : severity, kind,
                     std::string(isHeader ? "the header" : "the content") + " has " + what + " (" +
                         std::to_string(count) + ")",
                     first);
    }
  }

  std::string_view m_text;
  const std::vector<ReceivedEntity>& m_entities;
  ProblemList& m_problems;
};

}  // namespace

void findLineProblems(const ReceivedEntities& received, ProblemList& problems) {
  LineChecks(received, problems).run();
}

}  // namespace mailtree
