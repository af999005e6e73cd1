#include "cli/views/problems_json.h"

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

Json problemsOf(const std::vector<Problem>& problems) {
  Json list = Json::array();
  for (const Problem& problem : problems)
    list.push_back(objectOf({{"kind", nameOf(problem.kind)},
                             {"part", problem.part},
                             {"text", problem.text},
                             {"severity", nameOf(problem.severity)},
                             {"offset", problem.offset ? Json(*problem.offset) : Json()}}));
  return list;
}

}  // namespace mailtree::cli
