// tests/support/table.h - tables of cases as text, for inputs and results that are short.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "mailtree/base/Ascii.h"

namespace mailtree {

/// Cases of N cells. "|" ends a cell; a line break or two blanks end a case. What begins with "#" is a comment.
template <std::size_t N>
std::vector<std::array<std::string, N>> casesOf(std::string_view table) {
  std::vector<std::array<std::string, N>> cases;
  for (std::string_view rest = trim(table); !rest.empty();) {
    const std::size_t end = std::min({rest.find('\n'), rest.find("  "), rest.size()});
    std::string_view row = rest.substr(0, end);
    rest = trim(rest.substr(end));
    if (row.starts_with('#')) continue;
    for (std::string& cell : cases.emplace_back()) {
      const std::size_t bar = std::min(row.find('|'), row.size());
      cell = trim(row.substr(0, bar));
      row.remove_prefix(std::min(bar + 1, row.size()));
    }
  }
  return cases;
}

}  // namespace mailtree
