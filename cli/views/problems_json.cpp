#include "cli/views/problems_json.h"

#include "cli/support/json_text.h"

namespace mailtree::cli {

std::string_view nameOf(Problem::Kind kind) noexcept {
  switch (kind) {
    case Problem::Kind::repaired: return "repaired";
    case Problem::Kind::damagedText: return "damaged_text";
    case Problem::Kind::limit: return "limit";
    case Problem::Kind::ambiguous: return "ambiguous";
    case Problem::Kind::notOpened: return "not_opened";
    case Problem::Kind::malformed: return "malformed";
    case Problem::Kind::deceptive: break;
  }
  return "deceptive";
}

std::string_view nameOf(Problem::Severity severity) noexcept {
  switch (severity) {
    case Problem::Severity::note: return "note";
    case Problem::Severity::warning: return "warning";
    case Problem::Severity::danger: break;
  }
  return "danger";
}

void appendProblems(std::string& out, const std::vector<Problem>& problems) {
  out += '[';
  for (const Problem& problem : problems) {
    ObjectText object;
    object.add("kind", nameOf(problem.kind))
        .add("part", problem.part)
        .add("text", problem.text)
        .add("severity", nameOf(problem.severity));
    problem.offset ? object.add("offset", *problem.offset) : object.addSerialized("offset", "null");
    out.append(out.ends_with('[') ? "" : ",").append(object.closed());
  }
  out += ']';
}

}  // namespace mailtree::cli
